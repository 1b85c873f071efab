"""How a reset divides the register into blocks: printed text, number of threads, refusals."""

import os
import re
from functools import partial
from types import ModuleType

import numpy as np
import pytest

from models.dense import NOT_ALLOCATED
from models.opcodes import H, X
from support.dense import DenseFilter, aligned, basis, open_dense, printed_by, reset
from support.driver import raises_engine_error, rec

HARD_THREADS = os.cpu_count() or 0
POINTER = "(0x[0-9a-f]+)"


def automatic_threads(num_qubits: int, max_num_threads: int) -> int:
    """The number of threads of the automatic choice; 1 means none."""
    aim = 2 * HARD_THREADS or 8
    most = 2
    while most < aim:
        most *= 2
    while max_num_threads and most > max_num_threads:
        most //= 2
    blocks, slots = 1, num_qubits
    while most > 1 and blocks < most and slots > 12:
        blocks, slots = blocks * 2, slots - 1
    return blocks


def printed_threads(block_size: int) -> int:
    """The number that a manual choice prints. It has no effect."""
    count = 1
    while block_size > 2 and 1 << count < block_size:
        count *= 2
    return count


def byte_size(number: int) -> str:
    for shift, unit in ((40, "TB"), (30, "GB"), (20, "MB"), (10, "KB")):
        if number >> shift:
            return f"{number * 2.0**-shift:g} {unit}"
    return f"{number} bytes"


def set_up_text(num_qubits: int, block_size: int) -> str:
    """A pattern of the text printed when the store and the blocks are created."""
    blocks, terms = 1 << (num_qubits - block_size), 1 << block_size
    size = re.escape(byte_size(16 << num_qubits))
    text = (
        rf"Allocating quantum register \(qubits: {num_qubits}, blocks: {blocks}, "
        rf"terms: {1 << num_qubits}, total size: {size}\.\.\.\n"
        rf"> Blockstore RAM alloc \({size}\) {POINTER} {POINTER}\n"
    )
    return text + re.escape(check_text(blocks, block_size, terms))


def check_text(blocks: int, block_size: int, terms: int) -> str:
    megabytes = terms * 16 * 9.5367431640625e-7
    return "".join(
        f"Core Block {i} ok (ocl=0, {block_size} qubits, {terms} terms, {megabytes:.3f} MB)\n"
        for i in range(blocks)
    )


def automatic_text(num_qubits: int, max_num_threads: int) -> str:
    user = f"    User requested max_threads: {max_num_threads}\n" if max_num_threads else ""
    return (
        "Automatically setting thread count...\n"
        f"    Detected CPU hard-threads: {HARD_THREADS}\n"
        f"{user}    ...setting num_threads to {automatic_threads(num_qubits, max_num_threads)}\n"
    )


def manual_text(num_qubits: int, block_size: int, max_num_threads: int = 0) -> str:
    ignored = "     (ignoring max_num_threads in favor of num_block_qubits)\n"
    return (
        "Setting thread count...\n"
        f"    User requested num_qubits: {num_qubits}\n"
        f"    User requested num_block_qubits: {block_size}\n"
        f"{ignored if max_num_threads else ''}"
        f"    ...setting num_threads to {printed_threads(block_size)}\n"
    )


@pytest.mark.parametrize("max_num_threads", [0, 1, 2, 3, 4, 7, 2**32 - 1])
@pytest.mark.parametrize("num_qubits", [1, 12, 13, 14, 17])
def test_the_automatic_choice(
    engine: ModuleType,
    capfd: pytest.CaptureFixture[str],
    num_qubits: int,
    max_num_threads: int,
) -> None:
    blocks = automatic_threads(num_qubits, max_num_threads)
    block_size = num_qubits - blocks.bit_length() + 1
    if max_num_threads < 2**31:  # printed as a signed number
        choice = automatic_text(num_qubits, max_num_threads)
    else:
        choice = automatic_text(num_qubits, max_num_threads).replace(str(max_num_threads), "-1")
    with open_dense(engine) as filter_:
        filter_.set(max_num_threads=max_num_threads, verbose=1)
        text = printed_by(capfd, lambda: filter_.run(reset(num_qubits)))
    assert re.fullmatch(re.escape(choice) + set_up_text(num_qubits, block_size), text)


@pytest.mark.parametrize("max_num_threads", [0, 1, 3])
@pytest.mark.parametrize(
    ("num_qubits", "wanted"), [(1, 1), (3, 1), (4, 2), (5, 3), (5, 5), (8, 5), (6, 40), (18, 17)]
)
def test_the_manual_choice(
    engine: ModuleType,
    capfd: pytest.CaptureFixture[str],
    num_qubits: int,
    wanted: int,
    max_num_threads: int,
) -> None:
    block_size = min(num_qubits, wanted)
    choice = manual_text(num_qubits, block_size, max_num_threads)
    with open_dense(engine) as filter_:
        filter_.set(num_block_qubits=wanted, max_num_threads=max_num_threads, verbose=1)
        text = printed_by(capfd, lambda: filter_.run(reset(num_qubits)))
    assert re.fullmatch(re.escape(choice) + set_up_text(num_qubits, block_size), text)


def test_a_store_begins_at_a_multiple_of_32_bytes(
    engine: ModuleType, capfd: pytest.CaptureFixture[str]
) -> None:
    with open_dense(engine) as filter_:
        filter_.set(num_block_qubits=1, verbose=1)
        for num_qubits in range(1, 8):
            text = printed_by(capfd, partial(filter_.run, reset(num_qubits)))
            match = re.search(rf"alloc \(.*\) {POINTER} {POINTER}\n", text)
            assert match
            assert int(match[1], 16) % 64 == 0


def test_a_reset_of_the_same_shape_prints_its_choice_and_the_old_blocks(
    engine: ModuleType, capfd: pytest.CaptureFixture[str]
) -> None:
    with open_dense(engine) as filter_:
        filter_.set(num_block_qubits=2, verbose=1)
        filter_.run(reset(3))
        text = printed_by(capfd, lambda: filter_.run(reset(3)))
        assert text == manual_text(3, 2) + check_text(2, 2, 4)
        # A block prints if the switch was on when it was created.
        filter_.set(num_block_qubits=2, verbose=0)
        assert printed_by(capfd, lambda: filter_.run(reset(3))) == check_text(2, 2, 4)


def test_blocks_made_in_silence_stay_silent(
    engine: ModuleType, capfd: pytest.CaptureFixture[str]
) -> None:
    with open_dense(engine) as filter_:
        assert printed_by(capfd, lambda: filter_.run(reset(3))) == ""
        filter_.set(verbose=1)
        text = printed_by(capfd, lambda: filter_.run(reset(3)))
        assert text == automatic_text(3, 0)


def test_a_buffer_prints_the_same_set_up(
    engine: ModuleType, capfd: pytest.CaptureFixture[str]
) -> None:
    state = aligned(16)
    with open_dense(engine) as filter_:
        filter_.set(num_block_qubits=3, verbose=1)
        text = printed_by(capfd, lambda: filter_.call("override_state_buffer", state))
    match = re.fullmatch(re.escape(manual_text(4, 3)) + set_up_text(4, 3), text)
    assert match
    assert int(match[1], 16) == state.ctypes.data


@pytest.mark.parametrize("setting", [{}, {"num_block_qubits": 2}, {"is_async": 0}])
def test_a_new_register_is_all_qubits_zero(engine: ModuleType, setting: dict[str, int]) -> None:
    with open_dense(engine) as filter_:
        filter_.set(**setting)
        for num_qubits in (1, 5, 13, 5, 5):
            filter_.run(reset(num_qubits))
            np.testing.assert_array_equal(filter_.state(num_qubits), basis(num_qubits, 0))
            filter_.run(rec(H, target_mask=2**num_qubits - 1))


def refusal(num_qubits: int, gb: str, limit: int) -> str:
    return (
        f"RAM size for {num_qubits} qubits requires {gb} GB, "
        f"which exceeds qc.reset(max_ram_size_gb) limit of {limit} GB.\n"
        "To fix this, either increase max_ram_size_gb using qc.reset(), "
        "reduce the number of qubits,\n"
        "or remove the >>state-vector-sim>>/>>qpu>> filter "
        "(possibly replace it with >>bit-sim>> if applicable)\n"
    )


@pytest.mark.parametrize(
    ("num_qubits", "gb", "limit"),
    [
        (27, "2", 1),
        (28, "4", 3),
        (29, "8", 7),
        (40, "16384", 16383),
        (46, "1.04858e+06", 5),
        (60, "1.71799e+10", 2**32 - 1),
        (64, "2.74878e+11", 1),
        (65, "5.49756e+11", 1),
        (100, "1.88895e+22", 1),
        (2**20, "inf", 1),
        (2**63, "inf", 1),
        (2**64 - 1, "inf", 2**32 - 1),
    ],
)
@pytest.mark.parametrize("block_size", [0, 2])
def test_a_register_above_the_limit_is_refused(
    engine: ModuleType, num_qubits: int, gb: str, limit: int, block_size: int
) -> None:
    with open_dense(engine, 3) as filter_:
        filter_.set(num_block_qubits=block_size, max_ram_size_gb=limit)
        filter_.fails(refusal(num_qubits, gb, limit), reset(num_qubits))
        filter_.fails(NOT_ALLOCATED, rec(H, target_mask=1))
        filter_.run(reset(3))
        np.testing.assert_array_equal(filter_.state(3), basis(3, 0))


def test_the_limit_is_not_tested_for_the_same_shape(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        filter_.set(max_ram_size_gb=1)
        filter_.fails(refusal(27, "2", 1), reset(27))
        # The filter keeps the refused register's shape, for which it has no blocks.
        with raises_engine_error(NOT_ALLOCATED):
            filter_.run(reset(27))


def test_parameters_hold_from_the_next_reset_on(
    engine: ModuleType, capfd: pytest.CaptureFixture[str]
) -> None:
    with open_dense(engine, 4) as filter_:
        filter_.set(num_block_qubits=1, verbose=1)
        assert printed_by(capfd, lambda: filter_.run(rec(H, target_mask=15))) == ""
        expect = re.escape(manual_text(4, 1)) + set_up_text(4, 1)
        assert re.fullmatch(expect, printed_by(capfd, lambda: filter_.run(reset(4))))


def test_each_filter_has_its_own_parameters(
    engine: ModuleType, capfd: pytest.CaptureFixture[str]
) -> None:
    with open_dense(engine) as first, open_dense(engine) as second:
        first.set(verbose=1)
        assert printed_by(capfd, lambda: second.run(reset(2))) == ""
        assert printed_by(capfd, lambda: first.run(reset(2))).startswith(automatic_text(2, 0))


def is_working(filter_: DenseFilter) -> bool:
    filter_.run(reset(2), rec(X, target_mask=3))
    return bool(np.array_equal(filter_.state(2), basis(2, 3)))


def test_use_opencl_changes_nothing(engine: ModuleType) -> None:
    with open_dense(engine) as filter_:
        filter_.set(use_opencl=1)
        assert is_working(filter_)
