"""The engine refuses to load in a sub-interpreter, and works in the main one after that."""

import subprocess
import sys

import pytest

# Makes a sub-interpreter and runs `code` there. The modules are private to CPython.
OF_OLDER_PYTHON = """
import _xxsubinterpreters as interpreters
interpreters.run_string(interpreters.create(isolated={own_lock}), code)
"""
OF_NEWER_PYTHON = """
import _interpreters as interpreters
failure = interpreters.exec(interpreters.create("isolated" if {own_lock} else "legacy"), code)
assert failure is None, failure
"""
RUN_THERE = OF_OLDER_PYTHON if sys.version_info < (3, 13) else OF_NEWER_PYTHON

CODE = """
try:
    import _lib_nb_sim
except ImportError as error:
    print(error, flush=True)
else:
    print("loaded", flush=True)
"""

WORK_HERE = """
import _lib_nb_sim
_lib_nb_sim.delete_native_filter(_lib_nb_sim.new_native_filter("StreamBitQPU"))
print("works in the main interpreter")
"""

OWN_REFUSAL = (
    "_lib_nb_sim does not support sub-interpreters: import it in the main interpreter, "
    "or use processes"
)
# CPython refuses modules of this kind itself, if the interpreter has its own lock:
# 3.12 once the main interpreter has imported the engine, 3.13 always.
REFUSAL_OF_PYTHON = "module _lib_nb_sim does not support loading in subinterpreters"


@pytest.mark.parametrize("before", ["", "import _lib_nb_sim"], ids=["first", "after-main"])
@pytest.mark.parametrize("own_lock", [False, True])
def test_the_import_is_refused_with_a_message(before: str, *, own_lock: bool) -> None:
    program = f"{before}\ncode = {CODE!r}\n{RUN_THERE.format(own_lock=own_lock)}\n{WORK_HERE}"
    process = subprocess.run(
        [sys.executable, "-c", program], capture_output=True, text=True, check=False
    )
    imported = before != ""
    by_python = own_lock and sys.version_info >= ((3, 12) if imported else (3, 13))
    refusal = REFUSAL_OF_PYTHON if by_python else OWN_REFUSAL
    first_line, *rest = process.stdout.splitlines() or [""]
    assert first_line == refusal, process.stderr
    assert rest == ["works in the main interpreter"], process.stderr
    assert process.returncode == 0, process.stderr
