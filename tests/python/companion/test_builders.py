"""Every builder's exact records, and how wide registers spread over them."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from hypothesis import given
from hypothesis import strategies as st
from nimbrel import Opcode

PLAIN_GATES: dict[Any, Opcode] = {
    nb.h: Opcode.H,
    nb.x: Opcode.X,
    nb.y: Opcode.Y,
    nb.z: Opcode.Z,
    nb.s: Opcode.S,
    nb.s_inv: Opcode.S_INV,
    nb.t: Opcode.T,
    nb.t_inv: Opcode.T_INV,
    nb.rootx: Opcode.ROOTX,
    nb.rootx_inv: Opcode.ROOTX_INV,
    nb.rooty: Opcode.ROOTY,
    nb.rooty_inv: Opcode.ROOTY_INV,
    nb.lelbow: Opcode.LELBOW,
    nb.relbow: Opcode.RELBOW,
}
ANGLE_GATES: dict[Any, Opcode] = {
    nb.phase: Opcode.PHASE,
    nb.rx: Opcode.RX,
    nb.ry: Opcode.RY,
    nb.rz: Opcode.RZ,
}
TARGET_BUILDERS: list[Callable[[list[int]], nb.RecordArray]] = [
    nb.x,
    nb.read,
    nb.clear,
    nb.free,
    lambda targets: nb.rx(1.0, targets),
    lambda targets: nb.write(targets, 0),
]

qubits = st.integers(0, 400)


@st.composite
def operands(draw: st.DrawFn) -> tuple[list[int], list[int], list[int]]:
    """Targets, controls and negated controls, all different, in any order and any words."""
    chosen = draw(st.lists(qubits, min_size=1, max_size=14, unique=True))
    cuts = sorted(draw(st.tuples(*[st.integers(1, len(chosen))] * 2)))
    return chosen[: cuts[0]], chosen[cuts[0] : cuts[1]], chosen[cuts[1] :]


def equal(made: nb.RecordArray, *expected: nb.RecordArray) -> bool:
    """Whether the records are these, word for word."""
    return made.tobytes() == nb.program(*expected).tobytes()


def reached(records: nb.RecordArray, mask: str, offset: str) -> list[int]:
    """The qubits of one mask in the order in which the engine walks them.

    The operation's own pair comes first and the extensions follow in program order.
    """
    order = [*records[-1:], *records[:-1]]
    return [
        int(row[offset]) // 64 * 64 + bit
        for row in order
        for bit in range(64)
        if int(row[mask]) >> bit & 1
    ]


@pytest.mark.parametrize("gate", PLAIN_GATES, ids=lambda gate: gate.__name__)
def test_a_gate_in_the_first_word_is_one_record_without_offsets(
    gate: Callable[..., nb.RecordArray],
) -> None:
    made = gate([5, 0], controls=[63, 7], zeros=2, flag=-9)
    masks = {"target_mask": 0b100001, "cond_mask": 1 << 63 | 1 << 7 | 1 << 2}
    assert equal(made, nb.record(PLAIN_GATES[gate], **masks, cond_neg_mask=1 << 2, cond_flag=-9))


@pytest.mark.parametrize("gate", ANGLE_GATES, ids=lambda gate: gate.__name__)
def test_an_angle_gate_carries_its_degrees(gate: Callable[..., nb.RecordArray]) -> None:
    made = gate(-22.5, 3, controls=1, zeros=[4], flag=6)
    masks = {"target_mask": 1 << 3, "cond_mask": 0b10010, "cond_neg_mask": 1 << 4}
    assert equal(made, nb.record(ANGLE_GATES[gate], angle=-22.5, cond_flag=6, **masks))


@pytest.mark.parametrize("gate", [*PLAIN_GATES, *ANGLE_GATES], ids=lambda gate: gate.__name__)
def test_a_gate_tells_what_it_is(gate: Callable[..., nb.RecordArray]) -> None:
    assert getattr(nb, gate.__name__) is gate
    assert "Raises:" in (gate.__doc__ or "")


def test_a_high_word_is_reached_by_offset_alone() -> None:
    made = nb.x(130, controls=200)
    assert equal(
        made,
        nb.record(
            Opcode.X, target_mask=1 << 2, target_offset=128, cond_mask=1 << 8, cond_offset=192
        ),
    )


def test_further_words_stand_in_extension_records_before_the_gate() -> None:
    made = nb.x([200, 3, 70, 64], controls=[129, 65], zeros=[128, 300], flag=5)
    assert equal(
        made,
        nb.record(
            Opcode.EXTEND,
            target_mask=1 << 6 | 1,
            target_offset=64,
            cond_mask=0b11,
            cond_neg_mask=0b01,
            cond_offset=128,
        ),
        nb.record(
            Opcode.EXTEND,
            target_mask=1 << 8,
            target_offset=192,
            cond_mask=1 << 44,
            cond_neg_mask=1 << 44,
            cond_offset=256,
        ),
        nb.record(Opcode.X, target_mask=1 << 3, cond_mask=0b10, cond_offset=64, cond_flag=5),
    )


def test_controls_alone_can_need_an_extension() -> None:
    made = nb.lelbow(0, controls=[1, 64])
    assert equal(
        made,
        nb.record(Opcode.EXTEND, cond_mask=1, cond_offset=64),
        nb.record(Opcode.LELBOW, target_mask=1, cond_mask=2),
    )


@given(operands=operands(), flag=st.integers(-(2**63), 2**63 - 1))
def test_a_gate_reaches_exactly_its_qubits(
    operands: tuple[list[int], list[int], list[int]], flag: int
) -> None:
    targets, ones, zeros = operands
    made = nb.x(targets, controls=ones, zeros=zeros, flag=flag)
    assert reached(made, "target_mask", "target_offset") == sorted(targets)
    assert reached(made, "cond_mask", "cond_offset") == sorted(ones + zeros)
    assert reached(made, "cond_neg_mask", "cond_offset") == sorted(zeros)
    assert made["opcode"].tolist() == [Opcode.EXTEND] * (len(made) - 1) + [Opcode.X]
    # An extension always applies: the gate's own flag decides for both.
    assert made["cond_flag"].tolist() == [0] * (len(made) - 1) + [flag]


@given(operands=operands())
def test_a_gate_needs_as_many_records_as_its_most_spread_operand(
    operands: tuple[list[int], list[int], list[int]],
) -> None:
    targets, ones, zeros = operands
    made = nb.x(targets, controls=ones, zeros=zeros)
    target_words = {qubit // 64 for qubit in targets}
    cond_words = {qubit // 64 for qubit in ones + zeros}
    assert len(made) == max(len(target_words), len(cond_words))


@pytest.mark.parametrize("a_b", [(1, 9), (9, 1)])
def test_a_swap_in_one_word_is_one_record(a_b: tuple[int, int]) -> None:
    made = nb.swap(*a_b, controls=2, zeros=3, flag=4)
    masks = {"target_mask": 1 << 9 | 1 << 1, "cond_mask": 0b1100, "cond_neg_mask": 0b1000}
    assert equal(made, nb.record(Opcode.SWAP, cond_flag=4, **masks))


def test_a_swap_across_words_needs_an_extension() -> None:
    assert equal(
        nb.swap(70, 1),
        nb.record(Opcode.EXTEND, target_mask=1 << 6, target_offset=64),
        nb.record(Opcode.SWAP, target_mask=1 << 1),
    )


@pytest.mark.parametrize("gate", [nb.z, nb.s, nb.s_inv, nb.t, nb.t_inv])
def test_a_phase_gate_can_act_on_its_controls_alone(gate: Callable[..., nb.RecordArray]) -> None:
    expected = nb.record(PLAIN_GATES[gate], cond_mask=0b101, cond_neg_mask=0b100)
    assert equal(gate((), controls=0, zeros=2), expected)


def test_a_phase_can_act_on_its_controls_alone() -> None:
    assert equal(nb.phase(30, (), controls=1), nb.record(Opcode.PHASE, angle=30, cond_mask=2))


def test_a_read_walks_the_words_upward() -> None:
    made = nb.read(range(190, 60, -1), 17, flag=-3)
    assert reached(made, "target_mask", "target_offset") == list(range(61, 191))
    assert equal(
        made,
        nb.record(Opcode.EXTEND, target_mask=2**64 - 1, target_offset=64),
        nb.record(Opcode.EXTEND, target_mask=2**63 - 1, target_offset=128),
        nb.record(Opcode.READ, target_mask=0b111 << 61, read_flag=17, cond_flag=-3),
    )


def test_a_write_carries_its_value_beside_its_targets() -> None:
    made = nb.write([64, 0, 65, 1], 0b0111, 20, flag=8)
    assert equal(
        made,
        nb.record(
            Opcode.EXTEND, target_mask=0b11, target_offset=64, cond_mask=0b11, cond_offset=64
        ),
        nb.record(Opcode.WRITE, target_mask=0b11, cond_mask=0b01, read_flag=20, cond_flag=8),
    )


@given(data=st.data())
def test_a_write_sends_bit_k_to_the_kth_qubit(data: st.DataObject) -> None:
    targets = data.draw(st.lists(qubits, min_size=1, max_size=40, unique=True))
    value = data.draw(st.integers(0, 2 ** len(targets) - 1))
    made = nb.write(targets, value)
    ones = [qubit for position, qubit in enumerate(targets) if value >> position & 1]
    assert reached(made, "target_mask", "target_offset") == sorted(targets)
    assert reached(made, "cond_mask", "cond_offset") == sorted(ones)
    assert not made["cond_neg_mask"].any()


@pytest.mark.parametrize("value", [-1, 4, 2**70])
def test_a_write_refuses_a_value_that_does_not_fit(value: int) -> None:
    with pytest.raises(ValueError, match=r"^the value does not fit 2 qubits$"):
        nb.write([0, 1], value)


def test_clear_and_free_name_their_targets_only() -> None:
    far = nb.record(Opcode.EXTEND, target_mask=1 << 6, target_offset=64)
    assert equal(
        nb.clear([70, 2], flag=3), far, nb.record(Opcode.CLEAR, target_mask=4, cond_flag=3)
    )
    assert equal(nb.free([70, 2], flag=3), far, nb.record(Opcode.FREE, target_mask=4, cond_flag=3))


def test_a_checked_free_sets_bit_4_in_its_own_record_alone() -> None:
    assert equal(
        nb.free([70, 2], check=True, event_code=77),
        nb.record(Opcode.EXTEND, target_mask=1 << 6, target_offset=64),
        nb.record(Opcode.FREE, target_mask=4, cond_mask=1 << 4, read_flag=77),
    )


@pytest.mark.parametrize("code", [-1, 2**32])
def test_a_free_refuses_a_code_above_32_bits(code: int) -> None:
    with pytest.raises(ValueError, match=rf"^event_code must be from 0 to 4294967295, not {code}$"):
        nb.free(0, event_code=code)


def test_a_reset_carries_the_number_of_qubits() -> None:
    assert equal(nb.reset(3074), nb.record(Opcode.RESET, target_mask=3074))
    with pytest.raises(ValueError, match="cannot have -1 qubits"):
        nb.reset(-1)


def test_a_flag_nand_carries_signed_flags() -> None:
    made = nb.flag_nand(-7, 8, -9, flag=-10)
    masks = {"target_mask": 2**64 - 7, "cond_mask": 8}
    assert equal(made, nb.record(Opcode.FLAG_NAND, **masks, read_flag=-9, cond_flag=-10))


@pytest.mark.parametrize("flag", [2**63, -(2**63) - 1])
def test_a_flag_nand_refuses_a_flag_above_64_bits(flag: int) -> None:
    with pytest.raises(ValueError, match="does not fit a signed 64-bit word"):
        nb.flag_nand(2, flag, 3)


def test_jumps_and_labels_carry_the_label() -> None:
    assert equal(nb.jump_fwd(12, flag=-5), nb.record(Opcode.JUMP_FWD, target_mask=12, cond_flag=-5))
    assert equal(nb.label(12), nb.record(Opcode.LABEL, target_mask=12))


def test_events_carry_their_id_as_a_double() -> None:
    assert equal(nb.open_event(2**63), nb.record(Opcode.OPEN_EVENT, angle=2.0**63))
    assert equal(nb.close_event(5), nb.record(Opcode.CLOSE_EVENT, angle=5.0))


@pytest.mark.parametrize("builder", [nb.open_event, nb.close_event])
@pytest.mark.parametrize("event_id", [-1, 2**53 + 1, 2**64 - 1, 2**64])
def test_an_id_that_no_double_holds_is_refused(
    builder: Callable[[int], nb.RecordArray], event_id: int
) -> None:
    with pytest.raises(ValueError, match="is not exact as a double"):
        builder(event_id)


def test_a_pauli_rotation_carries_its_conditions_in_the_read_flag_word() -> None:
    made = nb.ppr(12.5, [0, 1], [1, 2], controls=63, zeros=4, flag=7)
    masks = {"target_mask": 0b011, "cond_mask": 0b110, "cond_neg_mask": 1 << 4}
    conditions = (1 << 63 | 1 << 4) - 2**64
    assert equal(
        made, nb.record(Opcode.PPR, angle=12.5, read_flag=conditions, cond_flag=7, **masks)
    )


def test_a_pauli_measurement_carries_its_sign_in_the_angle() -> None:
    masks = {"target_mask": 1, "cond_mask": 2}
    assert equal(
        nb.ppm(0, 1, 30, sign=-1, flag=4),
        nb.record(Opcode.PPM, angle=-1.0, read_flag=30, cond_flag=4, **masks),
    )
    assert equal(nb.ppm(0, 1), nb.record(Opcode.PPM, angle=1.0, **masks))
    with pytest.raises(ValueError, match=r"^sign must be 1 or -1, not 0$"):
        nb.ppm(0, 1, sign=0)


def test_a_batch_product_carries_its_number_in_the_angle() -> None:
    made = nb.pcp(1, 2, (), [3], flag=4)
    assert equal(made, nb.record(Opcode.PCP, angle=2001.0, cond_mask=8, cond_flag=4))


@pytest.mark.parametrize(("k", "n"), [(-1, 2), (2, 2), (0, 0), (0, 1001)])
def test_a_batch_product_out_of_its_batch_is_refused(k: int, n: int) -> None:
    with pytest.raises(ValueError, match="not within a batch"):
        nb.pcp(k, n, 0, ())


PAULI_BUILDERS: dict[str, Callable[[list[int], list[int]], nb.RecordArray]] = {
    "ppr": lambda xs, zs: nb.ppr(1.0, xs, zs),
    "ppm": nb.ppm,
    "pcp": lambda xs, zs: nb.pcp(0, 1, xs, zs),
}


@pytest.mark.parametrize("name", PAULI_BUILDERS)
def test_a_pauli_product_is_not_empty(name: str) -> None:
    with pytest.raises(ValueError, match=r"^a Pauli product needs at least one qubit$"):
        PAULI_BUILDERS[name]([], [])
    with pytest.raises(ValueError, match=r"^X qubit -1 is negative$"):
        PAULI_BUILDERS[name]([0, -1], [])
    with pytest.raises(ValueError, match=r"^Z qubit 70 is given twice$"):
        PAULI_BUILDERS[name]([0], [70, 70])


@pytest.mark.parametrize("name", ["ppr", "ppm"])
def test_a_pauli_product_lays_further_words_into_extensions(name: str) -> None:
    build = PAULI_BUILDERS[name]
    # The record itself always has the lowest word, even if one of its masks is empty.
    *extensions, own = (part.reshape(1) for part in build([200, 70, 128], [3, 70]))
    assert equal(own, build([], [3]))
    expected = [
        {"target_mask": 1 << 6, "target_offset": 64, "cond_mask": 1 << 6, "cond_offset": 64},
        {"target_mask": 1, "target_offset": 128},
        {"target_mask": 1 << 8, "target_offset": 192},
    ]
    for made, words in zip(extensions, expected, strict=True):
        assert equal(made, nb.record(Opcode.EXTEND, **words))


@pytest.mark.parametrize("name", ["ppr", "ppm"])
def test_a_pauli_product_needs_a_qubit_in_the_lowest_word(name: str) -> None:
    with pytest.raises(ValueError, match=r"^a Pauli product needs at least one qubit below 64$"):
        PAULI_BUILDERS[name]([64], [64, 100])


def test_a_batch_product_stays_below_64_qubits() -> None:
    with pytest.raises(ValueError, match=r"^X qubit 64 is not below 64$"):
        nb.pcp(0, 1, [3, 64], [])
    with pytest.raises(ValueError, match=r"^Z qubit 70 is not below 64$"):
        nb.pcp(0, 1, [], [70])


def test_a_pauli_rotation_refuses_a_control_above_63() -> None:
    with pytest.raises(ValueError, match=r"^control qubit 64 is not below 64$"):
        nb.ppr(1.0, 0, (), zeros=64)


@pytest.mark.parametrize("builder", TARGET_BUILDERS)
def test_bad_targets_are_refused(builder: Callable[[list[int]], nb.RecordArray]) -> None:
    with pytest.raises(ValueError, match=r"^at least one target qubit is needed$"):
        builder([])
    with pytest.raises(ValueError, match=r"^target qubit -2 is negative$"):
        builder([1, -2])
    with pytest.raises(ValueError, match=r"^target qubit 65 is given twice$"):
        builder([65, 1, 65])


def test_bad_controls_are_refused() -> None:
    with pytest.raises(ValueError, match=r"^qubit 66 is a control and a zero-control at once$"):
        nb.x(0, controls=[1, 66], zeros=[66, 2])
    with pytest.raises(ValueError, match=r"^control qubit 1 is given twice$"):
        nb.x(0, controls=[1, 1])
    with pytest.raises(ValueError, match=r"^zero-control qubit -1 is negative$"):
        nb.x(0, zeros=-1)


@pytest.mark.parametrize("gate", [nb.x, nb.z])
def test_a_gate_without_any_qubit_is_refused(gate: Callable[..., nb.RecordArray]) -> None:
    with pytest.raises(ValueError, match="at least one target"):
        gate([])


def test_a_swap_with_itself_is_refused() -> None:
    with pytest.raises(ValueError, match=r"^swap needs two different qubits, not 3 twice$"):
        nb.swap(3, 3)


def test_a_qubit_that_is_no_integer_is_refused() -> None:
    with pytest.raises(TypeError):
        nb.x(1.0)  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        nb.x(["1"])  # type: ignore[list-item]


FRACTIONS: dict[str, Callable[[], nb.RecordArray]] = {
    "reset": lambda: nb.reset(2.5),  # type: ignore[arg-type]
    "read, flag": lambda: nb.read(0, 2.5),  # type: ignore[arg-type]
    "read, condition": lambda: nb.read(0, flag=2.5),  # type: ignore[arg-type]
    "write": lambda: nb.write(0, 0.5),  # type: ignore[arg-type]
    "write, flag": lambda: nb.write(0, 1, 2.5),  # type: ignore[arg-type]
    "clear": lambda: nb.clear(0, flag=2.5),  # type: ignore[arg-type]
    "free": lambda: nb.free(0, flag=2.5),  # type: ignore[arg-type]
    "free, code": lambda: nb.free(0, event_code=2.5),  # type: ignore[arg-type]
    "flag_nand, a": lambda: nb.flag_nand(2.5, 3, 4),  # type: ignore[arg-type]
    "flag_nand, b": lambda: nb.flag_nand(2, 3.5, 4),  # type: ignore[arg-type]
    "flag_nand, dest": lambda: nb.flag_nand(2, 3, 4.5),  # type: ignore[arg-type]
    "jump_fwd": lambda: nb.jump_fwd(1.5),  # type: ignore[arg-type]
    "jump_fwd, condition": lambda: nb.jump_fwd(1, flag=2.5),  # type: ignore[arg-type]
    "label": lambda: nb.label(1.5),  # type: ignore[arg-type]
    "gate": lambda: nb.x(0, flag=2.5),  # type: ignore[arg-type]
    "angle gate": lambda: nb.rx(90.0, 0, flag=2.5),  # type: ignore[arg-type]
    "swap": lambda: nb.swap(0, 1, flag=2.5),  # type: ignore[arg-type]
    "ppr": lambda: nb.ppr(1.0, 0, (), flag=2.5),  # type: ignore[arg-type]
    "ppm, flag": lambda: nb.ppm(0, (), 2.5),  # type: ignore[arg-type]
    "pcp, number": lambda: nb.pcp(0.5, 1, 0, ()),  # type: ignore[arg-type]
    "pcp, batch": lambda: nb.pcp(0, 1.5, 0, ()),  # type: ignore[arg-type]
}


@pytest.mark.parametrize("build", FRACTIONS.values(), ids=FRACTIONS.keys())
def test_a_fraction_is_refused_where_an_integer_belongs(
    build: Callable[[], nb.RecordArray],
) -> None:
    with pytest.raises(TypeError, match="integer"):
        build()


@pytest.mark.parametrize("kind", [np.int8, np.uint8, np.int64, np.uint64])
def test_numbers_of_numpy_count_as_integers(kind: type[Any]) -> None:
    assert equal(nb.reset(kind(3)), nb.reset(3))
    assert equal(nb.read(0, kind(2), flag=kind(3)), nb.read(0, 2, flag=3))
    assert equal(nb.write([64, 1, 0], kind(5)), nb.write([64, 1, 0], 5))
    assert equal(nb.free(0, event_code=kind(7)), nb.free(0, event_code=7))
    assert equal(nb.flag_nand(kind(2), kind(3), kind(4)), nb.flag_nand(2, 3, 4))
    assert equal(nb.pcp(kind(1), kind(2), 0, ()), nb.pcp(1, 2, 0, ()))
    assert equal(nb.open_event(kind(9)), nb.open_event(9))


def test_a_negative_number_of_numpy_keeps_its_sign() -> None:
    seven: Any = np.int64(-7)
    eight: Any = np.int8(-8)
    assert equal(nb.flag_nand(seven, eight, -9), nb.flag_nand(-7, -8, -9))
    with pytest.raises(ValueError, match=r"^the value does not fit 2 qubits$"):
        nb.write([0, 1], np.int64(-1))


def test_qubits_come_from_any_iterable_of_integers() -> None:
    expected = nb.x([1, 2, 3])
    assert equal(nb.x(range(1, 4)), expected)
    assert equal(nb.x(iter((3, 2, 1))), expected)
    assert equal(nb.x(np.array([1, 2, 3], dtype=np.uint64)), expected)


def test_a_flag_above_64_bits_is_refused() -> None:
    with pytest.raises(ValueError, match="cond_flag must be from"):
        nb.x(0, flag=2**63)
