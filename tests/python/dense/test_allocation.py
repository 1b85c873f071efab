"""A state vector that does not fit into memory: the printed lines, and the filter afterwards."""

import subprocess
import sys
from types import ModuleType

import numpy as np
import pytest

from models.dense import NOT_ALLOCATED
from models.opcodes import H
from support.dense import Setting, basis, open_dense, printed_by, reset
from support.driver import rec

RULE = "------------------------------------\n"

# The child limits its own address space, so the machine's memory does not matter.
CHILD = """
import resource
import sys
sys.path[:0] = {path!r}
import _lib_nb_sim as engine
from models.dense import NOT_ALLOCATED
from support.dense import DenseFilter, reset
from support.driver import raises_engine_error, rec

used = int(open("/proc/self/statm").read().split()[0]) * resource.getpagesize()
resource.setrlimit(resource.RLIMIT_AS, (used + {spare}, used + {spare}))
filter_ = DenseFilter(engine)
"""


def run_child(spare: int, body: str) -> subprocess.CompletedProcess[str]:
    code = CHILD.format(path=sys.path, spare=spare) + body
    command = [sys.executable, "-c", code]
    return subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)


def exhausted(num_qubits: int, terms: int, size: str) -> str:
    return (
        "Error: NULL block_data at line 0\n"
        f"{RULE}Error: failed to allocate the state vector "
        f"(qubits: {num_qubits}, terms: {terms}, total size: {size}...\n"
        f"(Default serverless backend: max 26 qubits)\n{RULE}"
    )


FULL = 2**64 - 1


@pytest.mark.parametrize("block_size", [0, 3])
@pytest.mark.parametrize(
    ("num_qubits", "terms", "size"),
    [
        (50, 2**50, "16384 TB"),
        (59, 2**59, "8.38861e+06 TB"),
        (60, 2**60, "1.67772e+07 TB"),
        (61, 2**61, "1.67772e+07 TB"),
        (63, 2**63, "1.67772e+07 TB"),
        (64, FULL, "1.67772e+07 TB"),
        (65, FULL, "1.67772e+07 TB"),
        (76, FULL, "1.67772e+07 TB"),
        (128, FULL, "1.67772e+07 TB"),
        (2**31 - 1, FULL, "1.67772e+07 TB"),
    ],
)
def test_vast_registers(
    engine: ModuleType,
    capfd: pytest.CaptureFixture[str],
    num_qubits: int,
    terms: int,
    size: str,
    block_size: int,
) -> None:
    with open_dense(engine, 2, Setting(block_size)) as filter_:
        text = printed_by(capfd, lambda: filter_.run(reset(num_qubits)))
        assert text == exhausted(num_qubits, terms, size)
        filter_.fails(NOT_ALLOCATED, rec(H, target_mask=1))
        # A reset to the same shape has no blocks to reuse.
        filter_.fails(NOT_ALLOCATED, reset(num_qubits))
        filter_.run(reset(2))
        np.testing.assert_array_equal(filter_.state(2), basis(2, 0))


@pytest.mark.parametrize("num_qubits", [2**32, 2**32 + 3, 2**63, 2**64 - 1])
def test_qubit_numbers_of_more_than_32_bits(
    engine: ModuleType, capfd: pytest.CaptureFixture[str], num_qubits: int
) -> None:
    with open_dense(engine) as filter_:
        text = printed_by(capfd, lambda: filter_.run(reset(num_qubits)))
        assert text.startswith("Error: NULL block_data at line 0\n")
        assert text.endswith(f"(Default serverless backend: max 26 qubits)\n{RULE}")
        filter_.fails(NOT_ALLOCATED, rec(H, target_mask=1))


def test_a_limit_that_is_met_leaves_the_machine_to_say() -> None:
    # 26 qubits are exactly 1 GB, which the limit allows and the child does not have.
    done = run_child(
        512 << 20,
        "filter_.set(max_ram_size_gb=1)\n"
        "filter_.run(reset(26))\n"
        "filter_.fails(NOT_ALLOCATED, rec(0x09, target_mask=1))\n"
        "filter_.set(max_ram_size_gb=1, max_num_threads=1)\n"
        "filter_.run(reset(10))\n"
        "assert filter_.state(10)[0] == 1\n",
    )
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == exhausted(26, 2**26, "1 GB")


def test_the_old_register_goes_before_the_new_one_comes() -> None:
    # Two of them do not fit.
    done = run_child(
        640 << 20,
        "filter_.set(is_async=0)\n"
        "for num_qubits in (24, 23, 24, 23):\n"
        "    filter_.run(reset(num_qubits))\n"
        "    filter_.run(rec(0x05, target_mask=1))\n"
        "filter_.run(reset(25))\n"
        "filter_.run(rec(0x05, target_mask=1))\n",
    )
    assert (done.returncode, done.stderr, done.stdout) == (0, "", "")


def test_threads_that_the_machine_cannot_give() -> None:
    # 2^12 stacks do not fit the child's address space.
    done = run_child(
        256 << 20,
        "filter_.set(num_block_qubits=1)\n"
        "with raises_engine_error('Resource temporarily unavailable'):\n"
        "    filter_.run(reset(13))\n"
        "filter_.fails(NOT_ALLOCATED, rec(0x09, target_mask=1))\n"
        "filter_.call('finish')\n"
        "filter_.run(reset(3), rec(0x09, target_mask=7))\n"
        "assert abs(filter_.state(3)[7]) > 0.3\n"
        "filter_.close()\n"
        "print('done')\n",
    )
    assert (done.returncode, done.stderr, done.stdout) == (0, "", "done\n")
