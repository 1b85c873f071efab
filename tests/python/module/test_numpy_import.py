"""How the module imports NumPy, tested with fake NumPy packages that lack one thing each."""

import os
import subprocess
import sys
from pathlib import Path

import _lib_nb_sim
import pytest

LOAD = """
try:
    import _lib_nb_sim
except ImportError as error:
    print(f"{type(error).__name__}: {error}")
else:
    print("loaded", _lib_nb_sim.new_native_filter("StreamBitQPU"))
"""

# The name of the module is that of its definition.
COUNT_LEFT_BEHIND = """
import gc, types

for attempt in range(3):
    try:
        import _lib_nb_sim
    except ImportError:
        pass
gc.collect()
objects = gc.get_objects()
modules = sum(isinstance(one, types.ModuleType) and one.__name__ == "libnbsim" for one in objects)
errors = sum(isinstance(one, type) and one.__qualname__ == "Error" and one.__module__ == "nb_sim"
             for one in objects)
print(modules, errors)
"""

FIXED_TEXT = "ImportError: numpy._core.multiarray failed to import\n"

# A table with the entries that the import reads: ABI version, endianness, feature version.
FAKE_TABLE = """
import ctypes

_getter = ctypes.CFUNCTYPE(ctypes.c_uint)
_table = (ctypes.c_void_p * 512)()
_kept = []
for _slot, _value in ((0, {abi}), (210, {endianness}), (211, {feature})):
    _kept.append(_getter(lambda value=_value: value))
    _table[_slot] = ctypes.cast(_kept[-1], ctypes.c_void_p).value
_new = ctypes.pythonapi.PyCapsule_New
_new.restype = ctypes.py_object
_new.argtypes = (ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p)
_ARRAY_API = _new(ctypes.addressof(_table), None, None)
"""

GOOD_TABLE = FAKE_TABLE.format(abi=0x2000000, endianness=1, feature=0x11)


def fake_numpy(folder: Path, **modules: str) -> Path:
    """Writes a `numpy` package. Each subpackage has this source as its `_multiarray_umath`."""
    for subpackage, source in modules.items():
        package = folder / "numpy" / subpackage
        package.mkdir(parents=True)
        (package / "__init__.py").touch()
        (package / "_multiarray_umath.py").write_text(source)
    (folder / "numpy").mkdir(exist_ok=True)
    (folder / "numpy" / "__init__.py").touch()
    return folder


def load_engine(folder: Path, program: str = LOAD) -> tuple[str, str]:
    """Imports the engine with `folder` first on the path. Returns its output and its errors."""
    # The engine's folder comes second: only this process may have it on its path.
    path = os.pathsep.join((str(folder), str(Path(_lib_nb_sim.__file__).parent)))
    environment = os.environ | {"PYTHONPATH": path}
    command = [sys.executable, "-c", program]
    process = subprocess.run(
        command, capture_output=True, text=True, check=True, cwd=folder, env=environment
    )
    return process.stdout, process.stderr


@pytest.mark.parametrize(
    ("source", "first_error"),
    [
        pytest.param(
            "",
            "AttributeError: module 'numpy._core._multiarray_umath' has no attribute '_ARRAY_API'",
            id="no-table",
        ),
        pytest.param(
            "_ARRAY_API = 5",
            "RuntimeError: _ARRAY_API is not PyCapsule object",
            id="not-a-capsule",
        ),
        pytest.param(
            # A capsule with a name returns no pointer for the name NULL.
            "from datetime import datetime_CAPI as _ARRAY_API",
            "RuntimeError: _ARRAY_API is NULL pointer",
            id="null-pointer",
        ),
        pytest.param(
            FAKE_TABLE.format(abi=0x3000000, endianness=1, feature=0x20),
            "RuntimeError: module compiled against ABI version 0x2000000 "
            "but this version of numpy is 0x3000000",
            id="newer-abi",
        ),
        pytest.param(
            FAKE_TABLE.format(abi=0x1000009, endianness=1, feature=0x10),
            "RuntimeError: module was compiled against NumPy C-API version 0x11 (NumPy 1.25) "
            "but the running NumPy has C-API version 0x10.",
            id="older-features",
        ),
        pytest.param(
            FAKE_TABLE.format(abi=0x2000000, endianness=0, feature=0x11),
            "RuntimeError: FATAL: module compiled as unknown endian",
            id="unknown-endianness",
        ),
        pytest.param(
            FAKE_TABLE.format(abi=0x2000000, endianness=2, feature=0x11),
            "RuntimeError: FATAL: module compiled as little endian, "
            "but detected different endianness at runtime",
            id="big-endian",
        ),
        pytest.param(
            "raise ImportError('a broken build')", "ImportError: a broken build", id="broken"
        ),
    ],
)
def test_a_failing_import_prints_the_first_error(
    tmp_path: Path, source: str, first_error: str
) -> None:
    # The import uses the old location only if the new module is missing.
    out, err = load_engine(fake_numpy(tmp_path, _core=source, core=GOOD_TABLE))
    assert out == FIXED_TEXT
    assert first_error in err


def test_without_numpy_the_missing_old_module_is_printed(tmp_path: Path) -> None:
    out, err = load_engine(fake_numpy(tmp_path))
    assert out == FIXED_TEXT
    assert "ModuleNotFoundError: No module named 'numpy.core'" in err


@pytest.mark.parametrize("place", ["_core", "core"])
def test_the_table_is_found_in_the_new_place_and_in_the_old_one(tmp_path: Path, place: str) -> None:
    out, err = load_engine(fake_numpy(tmp_path, **{place: GOOD_TABLE}))
    assert out == "loaded 1\n"
    assert err == ""


@pytest.mark.parametrize("abi", [0x1000009, 0x2000000])
def test_an_abi_version_up_to_its_own_is_taken(tmp_path: Path, abi: int) -> None:
    table = FAKE_TABLE.format(abi=abi, endianness=1, feature=0x11)
    assert load_engine(fake_numpy(tmp_path, _core=table)) == ("loaded 1\n", "")


def test_a_failing_import_leaves_no_object_behind(tmp_path: Path) -> None:
    out, _ = load_engine(fake_numpy(tmp_path, _core="raise ImportError"), COUNT_LEFT_BEHIND)
    assert out == "0 0\n"


def test_a_loaded_engine_keeps_its_objects(tmp_path: Path) -> None:
    out, _ = load_engine(fake_numpy(tmp_path, _core=GOOD_TABLE), COUNT_LEFT_BEHIND)
    assert out == "1 1\n"
