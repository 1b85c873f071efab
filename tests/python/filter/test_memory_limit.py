"""Registers larger than the available memory: refused before the allocation, with both sizes."""

import re
import subprocess
import sys
from pathlib import Path
from types import ModuleType

import pytest

from models.opcodes import RESET, H
from models.program import NO_REGISTER
from support.clifford import open_clifford
from support.driver import failure_of, rec

# The child sees this much free memory: a /proc/meminfo in its own mount namespace.
FREE_KILOBYTES = 100 << 10
MEMINFO = f"MemTotal: {1 << 30} kB\nMemFree: 1 kB\nMemAvailable: {FREE_KILOBYTES} kB\n"
NAMESPACE = ["unshare", "--map-root-user", "--mount"]
MOUNT = 'mount --bind "$0" /proc/meminfo && exec "$@"'


def in_small_machine(meminfo: Path, *command: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [*NAMESPACE, "sh", "-c", MOUNT, str(meminfo), *command],
        capture_output=True,
        text=True,
        timeout=120,
        check=False,
    )


@pytest.fixture
def meminfo(tmp_path: Path) -> Path:
    file = tmp_path / "meminfo"
    file.write_text(MEMINFO, encoding="ascii")
    try:
        seen = in_small_machine(file, "cat", "/proc/meminfo").stdout
    except FileNotFoundError:
        seen = ""
    if seen != MEMINFO:
        pytest.skip("needs a mount namespace of its own")
    return file


def assert_child_says(meminfo: Path, body: str, expected: str) -> None:
    code = f"import sys\nsys.path[:0] = {sys.path!r}\nimport nimbrel as nb\n{body}"
    done = in_small_machine(meminfo, sys.executable, "-c", code)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == expected


@pytest.mark.parametrize("num_qubits", [1_500_000, 2**32 - 1])
def test_a_tableau_larger_than_any_machine(engine: ModuleType, num_qubits: int) -> None:
    text = (
        rf"RuntimeError\('Error: qc\.reset\(\) could not allocate a tableau of {num_qubits} "
        r"qubits\. It needs [0-9.e+]+ TB, and the process may have [0-9.]+ [KMGT]B more\.'\)"
    )
    with open_clifford(engine, 2) as filter_:
        failure = failure_of(lambda: filter_.run(rec(RESET, target_mask=num_qubits)))
        assert re.fullmatch(text, failure)
        filter_.fails(NO_REGISTER, rec(H, target_mask=1))
        filter_.reset(2)
        filter_.run(rec(H, target_mask=1))


def test_a_tableau_larger_than_the_machine(meminfo: Path) -> None:
    body = """
with nb.Simulator("StreamCliffordQPU") as sim:
    sim.run(nb.reset(2))
    try:
        sim.run(nb.reset(20000))
    except RuntimeError as error:
        print(error)
    try:
        sim.run(nb.h(0))
    except RuntimeError as error:
        print(error)
"""
    expected = (
        "Error: qc.reset() could not allocate a tableau of 20000 qubits. It needs 195.007 MB, "
        f"and the process may have 100 MB more.\n{NO_REGISTER}\n"
    )
    assert_child_says(meminfo, body, expected)


def test_a_list_that_doubles_without_end(meminfo: Path) -> None:
    body = """
with nb.Simulator("StreamSparseQPU") as sim:
    sim.run(nb.reset(60))
    try:
        sim.run(nb.h(range(60)))
    except RuntimeError as error:
        print(error)
    print(sim.num_stored_terms())
    print(sim.value_of((1 << 22) - 1) == sim.value_of(0) != 0)
    sim.run(nb.reset(60), nb.h(range(22)))
    print(sim.num_stored_terms())
"""
    expected = (
        f"Error: a gate could not allocate a list of {1 << 23} terms. It needs 192 MB, "
        f"and the process may have 100 MB more.\n{1 << 22}\nTrue\n{1 << 22}\n"
    )
    assert_child_says(meminfo, body, expected)


def test_a_bit_register_larger_than_the_machine(meminfo: Path) -> None:
    body = """
with nb.Simulator("StreamBitQPU") as sim:
    sim.run(nb.reset(3), nb.x(1))
    try:
        sim.run(nb.reset(1 << 25))
    except RuntimeError as error:
        print(error)
    sim.run(nb.read(range(3), 2))
    print(sim.flags(2, 3))
"""
    expected = (
        f"Error: qc.reset() could not allocate a register of {1 << 25} qubits. It needs 136 MB, "
        "and the process may have 100 MB more.\n2\n"
    )
    assert_child_says(meminfo, body, expected)


def test_a_state_vector_larger_than_the_machine_is_an_exhausted_allocation(meminfo: Path) -> None:
    body = """
with nb.Simulator("StreamQPU") as sim:
    sim.run(nb.reset(2))
    sim.run(nb.reset(23))
    sys.stdout.flush()
    try:
        sim.run(nb.h(0))
    except RuntimeError as error:
        assert str(error).startswith("Error: Simulated state vector data is requested"), error
    lent = nb.aligned_buffer(23)
    lent[5] = 1
    sim.override_state_buffer(lent)
    sim.run(nb.reset(22), nb.x(0))
"""
    rule = "------------------------------------\n"
    expected = (
        "Error: NULL block_data at line 0\n"
        f"{rule}Error: failed to allocate the state vector (qubits: 23, terms: {1 << 23}, "
        f"total size: 128 MB...\n(Default serverless backend: max 26 qubits)\n{rule}"
    )
    assert_child_says(meminfo, body, expected)
