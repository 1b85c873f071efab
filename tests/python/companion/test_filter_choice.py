"""The filter that `choose_filter` picks, and every record that speaks against a filter."""

from __future__ import annotations

import nimbrel as nb
import pytest
from nimbrel import Opcode

BIT, CLIFFORD, SPARSE, DENSE = (
    "StreamBitQPU",
    "StreamCliffordQPU",
    "StreamSparseQPU",
    "StreamQPU",
)

CLASSICAL = [
    *[nb.x(0), nb.x(1, controls=0), nb.x(1, zeros=0), nb.x(2, controls=0, zeros=1)],
    *[nb.lelbow(2, controls=[0, 1]), nb.relbow(2, controls=[0, 1]), nb.swap(0, 1, controls=2)],
    *[nb.write([0, 1], 2), nb.clear(0), nb.free(0, check=True, event_code=9, flag=5)],
    *[nb.read([0, 1, 2], -5), nb.read([0, 1], 0), nb.flag_nand(2, 3, 4), nb.x(0, flag=-7)],
    *[nb.jump_fwd(1, flag=3), nb.label(1), nb.open_event(1), nb.close_event(1)],
    *[nb.reset(5), nb.record(Opcode.Z_NOP), nb.record(Opcode.MARKER_10000002)],
]
CLIFFORD_ONLY = [
    *[nb.h([0, 1]), nb.y(0), nb.z(0), nb.s(0), nb.s_inv(0), nb.cz(0, 1), nb.z((), controls=0)],
    *[nb.phase(90, 0), nb.phase(-90, 0), nb.phase(180, 0), nb.rz(90, 0), nb.rz(180, 0)],
    *[nb.phase(180, (), controls=0), nb.ppr(45, 0, 1), nb.ppr(-135, [0, 1], 0)],
    *[nb.ppm(0, 1, 2), nb.ppm(0, 1, 2, sign=-1)],
]
OTHERS = [
    *[nb.t(0), nb.t_inv(0), nb.rx(90, 0), nb.ry(90, 0), nb.rootx(0), nb.rooty_inv(0)],
    *[nb.z(1, controls=0), nb.z((), controls=[0, 1]), nb.z((), zeros=0), nb.phase(45, 0)],
    *[nb.phase(270, 0), nb.phase(90, (), controls=0), nb.phase(180, 1, controls=0)],
    *[nb.rz(180, 1, controls=0), nb.rz(-180, 0), nb.h(1, controls=0), nb.s((), controls=0)],
    *[nb.ppr(30, 0, 1), nb.ppr(45, 0, 1, controls=2), nb.ppr(float("nan"), 0, 1)],
    *[nb.program(nb.h(0), nb.x(1, zeros=0)), nb.program(nb.h(0), nb.x(2, controls=[0, 1]))],
    *[nb.program(nb.h(0), nb.swap(0, 1, controls=2)), nb.program(nb.h(0), nb.lelbow(1))],
    *[nb.program(nb.h(0), nb.read([0, 1, 2], -1)), nb.pcp(0, 1, 0, 1)],
]


def on(num_qubits: int, *parts: nb.RecordArray) -> str:
    return nb.choose_filter(nb.program(nb.reset(num_qubits), *parts)).name


@pytest.mark.parametrize("part", CLASSICAL, ids=str)
def test_classical_records_go_to_the_bit_filter(part: nb.RecordArray) -> None:
    assert on(5, part) == BIT


@pytest.mark.parametrize("part", CLIFFORD_ONLY, ids=str)
def test_clifford_records_go_to_the_tableau(part: nb.RecordArray) -> None:
    assert on(5, part) == CLIFFORD
    assert on(5, *CLASSICAL[:2], part) == CLIFFORD


@pytest.mark.parametrize("part", OTHERS, ids=str)
def test_other_records_go_to_the_dense_register(part: nb.RecordArray) -> None:
    assert on(5, part) == DENSE


# Records that a sparse filter carries out otherwise than a dense one, or refuses.
NOT_SPARSE = {
    "a batch of products": nb.pcp(0, 1, 0, 1),
    "the flags of a write": nb.write(0, 1, 5),
    "the condition of a free": nb.free(0, flag=5),
    "the event code of a free, which is its condition": nb.free(0, event_code=5),
    "the offset of a write, which is its flag": nb.record(
        Opcode.WRITE, target_mask=1, target_offset=3
    ),
    "a swap of three": nb.record(Opcode.SWAP, target_mask=7),
    "a swap of one": nb.record(Opcode.SWAP, target_mask=1),
    "a product without letters": nb.record(Opcode.PPR, angle=30.0),
    "a measured product without letters": nb.record(Opcode.PPM, angle=1.0, read_flag=2),
    "a control among the letters": nb.ppr(30, 0, 1, controls=1),
    "a target that is a control": nb.x(1, controls=1),
}


@pytest.mark.parametrize("name", NOT_SPARSE)
def test_a_record_with_another_meaning_keeps_a_program_off_the_sparse_filter(name: str) -> None:
    assert on(20, nb.t(0)) == SPARSE
    assert on(20, nb.t(0), NOT_SPARSE[name]) == DENSE


@pytest.mark.parametrize(
    "part",
    [
        nb.write(0, 1, 5),
        nb.read([0, 1, 2], 0),
        nb.record(Opcode.SWAP, target_mask=7),
        nb.x(1, controls=1),
    ],
    ids=str,
)
def test_classical_records_with_another_meaning_on_the_bit_filter(part: nb.RecordArray) -> None:
    assert on(5, part) != BIT


def test_wide_programs_of_extension_records() -> None:
    assert on(1000, nb.x([3, 70, 999]), nb.read(range(1000), 2)) == BIT
    assert on(1000, nb.h([3, 70, 999]), nb.swap(3, 999), nb.write([3, 70], 1)) == CLIFFORD


def test_few_terms_go_to_the_sparse_filter() -> None:
    few = [nb.h(q) for q in range(5)] + [nb.t(q) for q in range(40)]
    choice = nb.choose_filter(nb.program(nb.reset(40), *few))
    assert choice.name == SPARSE
    assert (
        choice.reason == "record 6 (t) is not Clifford, and the state has at most 32 of 2**40 terms"
    )


def test_entanglement_and_repeated_gates_do_not_raise_the_bound() -> None:
    chain = nb.x.each(range(1, 40), controls=range(39))
    assert on(40, nb.h(0), nb.t(0), chain) == SPARSE
    assert on(20, *[nb.h([0, 1]), nb.t(0), nb.ry(3, [0, 1])] * 30) == SPARSE


def test_many_terms_go_to_the_dense_register() -> None:
    assert on(16, nb.h(range(16)), nb.t(0)) == DENSE
    choice = nb.choose_filter(nb.program(nb.reset(16), nb.h(range(16)), nb.t(0)))
    assert choice.reason == (
        "record 2 (t) is not Clifford, and 16 qubits with many terms fit the dense register"
    )


def test_few_qubits_go_to_the_dense_register() -> None:
    assert on(12, nb.t(0)) == DENSE
    assert on(13, nb.t(0)) == SPARSE


def test_a_reset_starts_the_bound_again() -> None:
    assert on(20, *[nb.h(range(8)), nb.t(0), nb.reset(20)] * 3) == SPARSE


def test_no_filter_for_too_many_terms() -> None:
    with pytest.raises(
        ValueError, match=r"no filter fits the program of 60 qubits: record 2 \(t\)"
    ):
        on(60, nb.h(range(60)), nb.t(0))


def test_no_filter_for_a_wide_register_with_other_gates() -> None:
    with pytest.raises(ValueError, match=r"record 1 \(t\) is not Clifford; record 0 \(reset\) has"):
        on(100, nb.t(0))
    with pytest.raises(ValueError, match="extension records"):
        on(20, nb.x([3, 70]), nb.t(0))


def test_the_reason_names_the_first_record_of_another_kind() -> None:
    choice = nb.choose_filter(nb.program(nb.reset(3), nb.x(0), nb.h(1), nb.s(2)))
    assert choice == (
        CLIFFORD,
        "record 2 (h) is not classical, and every record is Clifford",
    )


def test_a_program_without_a_reset_has_no_filter() -> None:
    with pytest.raises(ValueError, match="the first record of the program must be its reset"):
        nb.choose_filter(nb.h(0))


@pytest.mark.parametrize("num_qubits", [0, 1])
def test_small_registers(num_qubits: int) -> None:
    assert on(num_qubits) == (DENSE if num_qubits == 0 else BIT)
