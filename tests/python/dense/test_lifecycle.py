"""Life cycle of registers: their threads, a filter before its reset, and process exit."""

import os
import subprocess
import sys
from pathlib import Path
from types import ModuleType
from typing import Any

import numpy as np
import pytest

from models.dense import NOT_ALLOCATED
from models.opcodes import (
    CLEAR,
    FLAG_NAND,
    FREE,
    JUMP_FAMILY,
    MARKER_1000C003,
    OPEN_EVENT,
    PCP,
    PPM,
    PPR,
    READ,
    WRITE,
    Z_NOP,
    H,
    X,
)
from support.dense import DenseFilter, Setting, assert_same_bits, basis, open_dense, reset
from support.driver import rec

# Calls that access amplitudes, with arguments valid on a register of two qubits.
AMPLITUDE_CALLS: list[tuple[str, tuple[Any, ...]]] = [
    ("pull_state", (np.zeros(4, dtype=np.complex128),)),
    ("pull_state_specific", (np.zeros(4, dtype=np.complex128), 0)),
    ("pull_state_specific", (np.zeros(2, dtype=np.complex128), 1)),
    ("push_state", (np.zeros(4, dtype=np.complex128), 0)),
    ("push_state", (np.zeros(2, dtype=np.complex128), 1)),
    ("check_state", (np.zeros(4, dtype=np.complex128), 0.1, 1)),
    ("set_random", ()),
    ("normalize", ()),
    ("pps", (1, 1)),
    ("pps", (0, 0)),
    ("postselect", (0, 1)),
    ("peek_n_biggest_terms", (1, np.zeros(1, np.uint64), np.zeros(1, np.complex128))),
    ("peek_value", (0, np.zeros(1, dtype=np.complex128))),
    ("peek_read_probability", (0, 1, 0.0)),
]

AMPLITUDE_RECORDS = (READ, WRITE, CLEAR, FREE, PPM, PCP, PPR, H, X)


def native_threads() -> int:
    return len(list(Path("/proc/self/task").iterdir()))


def settles_at(threads: int) -> bool:
    """Waits until the process has so many threads: a joined thread may stay listed for a moment."""
    for _ in range(100_000):
        if native_threads() == threads:
            return True
        os.sched_yield()
    return False


def assert_not_allocated(filter_: DenseFilter) -> None:
    for name, arguments in AMPLITUDE_CALLS:
        filter_.call_fails(NOT_ALLOCATED, name, *arguments)
    for low in AMPLITUDE_RECORDS:
        filter_.fails(NOT_ALLOCATED, rec(low, target_mask=1))
    assert filter_.call("finish") is None


def test_everything_but_finish_needs_a_register(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        assert_not_allocated(filter_)


@pytest.mark.parametrize("setting", [Setting(), Setting(1), Setting(1, 0, 0)])
def test_a_refused_reset_leaves_no_register(engine: ModuleType, setting: Setting) -> None:
    with open_dense(engine, 4, setting) as filter_:
        filter_.set(**setting._asdict(), max_ram_size_gb=1)
        with pytest.raises(SystemError):
            filter_.run(reset(27))
        assert_not_allocated(filter_)
        filter_.run(reset(2), rec(X, target_mask=2))
        assert_same_bits(filter_.state(2), basis(2, 2))


def test_a_failed_allocation_leaves_no_register(engine: ModuleType) -> None:
    with open_dense(engine, 4, Setting(1)) as filter_:
        filter_.run(reset(50))
        assert_not_allocated(filter_)
        filter_.run(reset(2), rec(X, target_mask=2))
        assert_same_bits(filter_.state(2), basis(2, 2))


def test_a_first_reset_to_no_qubits_has_the_shape_of_no_register(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        filter_.fails(NOT_ALLOCATED, reset(0))
        filter_.run(reset(1), reset(0))
        assert_same_bits(filter_.state(0), basis(0, 0))


def test_records_that_need_no_register(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        filter_.run(rec(FLAG_NAND, target_mask=0, cond_mask=0, read_flag=4))
        assert filter_.flags(4, 1) == 1
        filter_.run(rec(Z_NOP), rec(OPEN_EVENT), rec(JUMP_FAMILY), rec(MARKER_1000C003))


def test_the_name_of_a_borrowed_text(engine: ModuleType) -> None:
    with open_dense(engine, 2) as filter_:
        text = "Error: no QPU data for qc.peek_read_probability()"
        filter_.call_fails(text, "peek_num_nonzero_terms")


@pytest.mark.parametrize(
    ("setting", "threads"),
    [
        (Setting(5), 1),
        (Setting(40), 1),
        (Setting(2), 8),
        (Setting(1), 16),
        (Setting(1, 5), 16),
        (Setting(1, 1), 0),
        (Setting(1, 0, 0), 0),
        (Setting(0), 0),
    ],
)
def test_one_thread_for_each_block(engine: ModuleType, setting: Setting, threads: int) -> None:
    before = native_threads()
    with open_dense(engine, 5, setting) as filter_:
        assert native_threads() == before + threads
        filter_.run(reset(5))
        assert native_threads() == before + threads
    assert settles_at(before)


def test_the_automatic_choice_makes_threads_above_12_qubits(engine: ModuleType) -> None:
    before = native_threads()
    with open_dense(engine, 13, Setting()) as filter_:
        assert native_threads() == before + 2
        filter_.run(reset(12))
        assert settles_at(before)


def test_the_same_shape_keeps_its_threads_whatever_is_asked_now(engine: ModuleType) -> None:
    before = native_threads()
    with open_dense(engine, 5, Setting(2)) as filter_:
        filter_.set(num_block_qubits=2, is_async=0, max_num_threads=1, max_ram_size_gb=1)
        filter_.run(rec(H, target_mask=31), reset(5))
        assert native_threads() == before + 8
        assert_same_bits(filter_.state(5), basis(5, 0))
        filter_.set(num_block_qubits=2, is_async=0, use_opencl=1)
        filter_.run(reset(5))
        assert settles_at(before)
        filter_.set(num_block_qubits=2, use_opencl=1)
        filter_.run(reset(5))
        assert native_threads() == before
        filter_.set(num_block_qubits=3, use_opencl=1)
        filter_.run(reset(5))
        assert native_threads() == before + 4


def test_the_same_shape_starts_from_all_zero_again(engine: ModuleType) -> None:
    with open_dense(engine, 5, Setting(2)) as filter_:
        for low in (0x05, 0x09, 0x06):
            filter_.run(rec(low, target_mask=0b10101), reset(5))
            assert_same_bits(filter_.state(5), basis(5, 0))


def test_deleting_without_any_work(engine: ModuleType) -> None:
    before = native_threads()
    for _ in range(100):
        with open_dense(engine, 6, Setting(1)):
            pass
    assert settles_at(before)


def test_resets_of_other_shapes_a_hundred_times(engine: ModuleType) -> None:
    before = native_threads()
    with open_dense(engine, 6, Setting(2)) as filter_:
        for number in range(100):
            filter_.set(num_block_qubits=1 + number % 3, is_async=int(number % 5 != 0))
            num_qubits = 4 + number % 3
            filter_.run(reset(num_qubits), rec(X, target_mask=1 << (num_qubits - 1)))
            assert_same_bits(filter_.state(num_qubits), basis(num_qubits, 1 << (num_qubits - 1)))
    assert settles_at(before)


def test_several_filters_side_by_side(engine: ModuleType) -> None:
    filters = [DenseFilter(engine, Setting(2)) for _ in range(6)]
    for number, filter_ in enumerate(filters):
        filter_.run(reset(5), rec(X, target_mask=1 << number % 5))
    for number, filter_ in enumerate(filters):
        assert_same_bits(filter_.state(5), basis(5, 1 << number % 5))
        filter_.close()


EXIT = """
import sys
sys.path[:0] = {path!r}
import _lib_nb_sim as engine
from support.dense import DenseFilter, Setting, reset
from support.driver import rec

filters = [DenseFilter(engine, Setting(size)) for size in (1, 2, 3, 4)]
for filter_ in filters:
    filter_.run(reset(5))
    {work}
print("done")
"""


@pytest.mark.parametrize("work", ["pass", "filter_.run(rec(0x09, target_mask=31))"])
def test_the_process_ends_with_workers_alive(work: str) -> None:
    command = [sys.executable, "-c", EXIT.format(path=sys.path, work=work)]
    for _ in range(4):
        done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
        assert (done.returncode, done.stdout, done.stderr) == (0, "done\n", "")
