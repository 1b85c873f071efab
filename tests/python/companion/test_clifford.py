"""The companion on a Clifford register: readable rows, and what its builders reach there."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Sequence
from typing import Any

import nimbrel as nb
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from nimbrel import CliffordSimulator, Simulator
from nimbrel.clifford import parse_tableau

from models.program import NO_REGISTER

FAR = [1, 40, 63, 64, 100, 127, 128, 191]  # qubits of a register of three words, in order
FAR_WIDTH = 192
FIRST_FLAG = 2

Builder = Callable[[Sequence[int]], nb.RecordArray]


@pytest.fixture
def sim() -> Iterator[CliffordSimulator]:
    """A Clifford simulator without a register."""
    with Simulator("StreamCliffordQPU") as simulator:
        yield simulator


def product(letters: dict[int, str], width: int, sign: str = "+") -> str:
    """A row as a string, by its letters at some qubits."""
    return sign + "".join(letters.get(qubit, "_") for qubit in range(width))


def letters_at(row: str, qubits: Sequence[int]) -> str:
    """A row's sign and its letters at some qubits; all others must be "_"."""
    letters = {qubit: row[1 + qubit] for qubit in qubits}
    assert row == product(letters, len(row) - 1, row[0])
    return row[0] + "".join(letters[qubit] for qubit in qubits)


def anticommute(a: str, b: str) -> bool:
    """Whether two rows anticommute: they differ, letter by letter, at an odd number of places."""
    pairs = zip(a.lstrip("+-i"), b.lstrip("+-i"), strict=True)
    return sum("_" not in pair and pair[0] != pair[1] for pair in pairs) % 2 == 1


def test_a_new_register_is_stabilized_by_z(sim: CliffordSimulator) -> None:
    sim.run(nb.reset(3))
    assert sim.generators() == ["+Z__", "+_Z_", "+__Z"]
    assert sim.destabilizers() == ["+X__", "+_X_", "+__X"]


def test_qubit_0_stands_first_and_the_sign_before_it(sim: CliffordSimulator) -> None:
    # The generator -X0 Z1 Y3: gates fold it onto qubit 3 and back.
    sim.run(nb.reset(4), nb.ppm([0, 3], [1, 3], FIRST_FLAG))
    sign = "-" if sim.flags(FIRST_FLAG, 1) else "+"
    assert f"{sign}XZ_Y" in sim.generators()


def test_a_register_without_qubits_has_no_rows(sim: CliffordSimulator) -> None:
    sim.run(nb.reset(0))
    assert sim.generators() == []
    assert sim.destabilizers() == []


@pytest.mark.parametrize(
    ("text", "destabilizers", "generators"),
    [
        ("0 01|00\n0 10|00\n-------\n0 00|01\n0 00|10\n", ["+X_", "+_X"], ["+Z_", "+_Z"]),
        ("1 01|11\n-------\n3 10|01\n", ["+iYZ"], ["-iZX"]),
        ("2 100|011\n0 000|000\n---------\n2 110|010\n0 000|001\n",
         ["-ZZX", "+___"], ["-_YX", "+Z__"]),
    ],
    ids=["new", "odd phases", "added row"],
)  # fmt: skip
def test_rows_of_a_text(text: str, destabilizers: list[str], generators: list[str]) -> None:
    assert parse_tableau(text) == (destabilizers, generators)


@pytest.mark.parametrize("width", [1, 63, 64, 128, 192])
def test_every_qubit_has_its_place(sim: CliffordSimulator, width: int) -> None:
    sim.run(nb.reset(width), nb.h(range(0, width, 2)), nb.x(range(0, width, 3)))
    for qubit, row in enumerate(sim.generators()):
        sign = "-" if qubit % 2 and not qubit % 3 else "+"
        assert row == product({qubit: "Z" if qubit % 2 else "X"}, width, sign)


@pytest.mark.parametrize(("width", "unprinted"), [(65, (1, 64)), (100, (36, 64)), (191, (63, 64))])
def test_qubits_that_the_text_leaves_out_are_marked(
    sim: CliffordSimulator, width: int, unprinted: tuple[int, int]
) -> None:
    sim.run(nb.reset(width), nb.h(range(0, width, 2)))
    gap = dict.fromkeys(range(*unprinted), "?")
    for qubit, row in enumerate(sim.generators()):
        assert row == product({qubit: "Z" if qubit % 2 else "X"} | gap, width)
    for qubit, row in enumerate(sim.destabilizers()):
        assert row == product({qubit: "X" if qubit % 2 else "Z"} | gap, width)


GATES: dict[str, Builder] = {
    "h": lambda qubits: nb.h(qubits[0]),
    "s": lambda qubits: nb.s(qubits[:2]),
    "s_inv": lambda qubits: nb.s_inv(qubits[0]),
    "x": lambda qubits: nb.x(qubits),
    "y": lambda qubits: nb.y(qubits[:2]),
    "z": lambda qubits: nb.z(qubits[0]),
    "phase": lambda qubits: nb.phase(-90.0, qubits[:2]),
    "rz": lambda qubits: nb.rz(180.0, qubits[1]),
    "cnot": lambda qubits: nb.x(qubits[1:], controls=qubits[0]),
    "swap": lambda qubits: nb.swap(qubits[0], qubits[1]),
    "ppr": lambda qubits: nb.ppr(45.0, qubits[:2], qubits[1:]),
    "negative ppr": lambda qubits: nb.ppr(-45.0, qubits[1:], qubits[:1]),
}
CONTROLLED_Z: dict[str, Builder] = {
    "controlled z": lambda qubits: nb.z(qubits[1:], controls=qubits[0]),
    "z on controls": lambda qubits: nb.z((), controls=qubits[:2]),
    "phase on controls": lambda qubits: nb.phase(180.0, (), controls=qubits[:2]),
}


def programs(
    width: int, names: Sequence[str]
) -> st.SearchStrategy[list[tuple[str, tuple[int, ...]]]]:
    """Gates by their name, each with three different qubits."""
    qubits = st.permutations(range(width)).map(lambda order: tuple(order[:3]))
    return st.lists(st.tuples(st.sampled_from(names), qubits), max_size=25)


@settings(deadline=None)
@given(gates=programs(5, sorted(GATES)))
def test_the_dense_state_agrees_with_every_generator(
    gates: list[tuple[str, tuple[int, ...]]],
) -> None:
    parts = [nb.reset(5), *[GATES[name](qubits) for name, qubits in gates]]
    with Simulator("StreamCliffordQPU") as sim, Simulator("StreamQPU") as dense:
        sim.run(*parts)
        dense.run(*parts)
        for row in sim.generators():
            xs = [qubit for qubit in range(5) if row[1 + qubit] in "XY"]
            zs = [qubit for qubit in range(5) if row[1 + qubit] in "ZY"]
            expected = 1.0 if row[0] == "+" else 0.0
            assert dense.pauli_probability(xs, zs) == pytest.approx(expected, abs=1e-9)


@settings(deadline=None)
@given(
    gates=programs(6, sorted(GATES)),
    measured=st.lists(st.integers(0, 5), min_size=1, unique=True),
)
def test_partners_anticommute_and_nothing_else_does(
    gates: list[tuple[str, tuple[int, ...]]], measured: list[int]
) -> None:
    with Simulator("StreamCliffordQPU") as sim:
        sim.run(nb.reset(6), *[GATES[name](qubits) for name, qubits in gates], nb.read(measured))
        generators, destabilizers = sim.generators(), sim.destabilizers()
    for i, row in enumerate(generators):
        assert not any(anticommute(row, other) for other in generators)
        partners = [k for k, other in enumerate(destabilizers) if anticommute(row, other)]
        assert partners == [i]


@settings(deadline=None)
@given(gates=programs(len(FAR), sorted(GATES | CONTROLLED_Z)))
def test_gates_on_far_qubits_are_those_on_near_ones(
    gates: list[tuple[str, tuple[int, ...]]],
) -> None:
    builders = GATES | CONTROLLED_Z
    found = []
    for width, place in ((len(FAR), range(len(FAR))), (FAR_WIDTH, FAR)):
        with Simulator("StreamCliffordQPU", allow_inexact_controls=True) as sim:
            sim.run(nb.reset(width))
            for name, qubits in gates:
                # A Pauli product needs a qubit in the lowest word.
                chosen = [0, *qubits[1:]] if "ppr" in name and 0 not in qubits else qubits
                sim.run(builders[name]([place[qubit] for qubit in chosen]))
            tables = [sim.generators(), sim.destabilizers()]
            found.append([[letters_at(table[row], place) for row in place] for table in tables])
            for qubit in set(range(width)) - set(place):
                assert tables[0][qubit] == product({qubit: "Z"}, width)
    assert found[0] == found[1]


def test_reads_of_far_qubits_go_upward(sim: CliffordSimulator) -> None:
    sim.run(nb.reset(FAR_WIDTH), nb.x([1, 64, 100, 191]), nb.read(reversed(FAR), FIRST_FLAG))
    assert sim.flags(FIRST_FLAG, len(FAR)) == 0b10011001


@pytest.mark.parametrize("value", [0, 0b1, 0b10000000, 0b10110010, 0b11111111])
def test_a_write_reaches_far_qubits(sim: CliffordSimulator, value: int) -> None:
    everything = nb.read(FAR, FIRST_FLAG)
    sim.run(nb.reset(FAR_WIDTH), nb.x(range(FAR_WIDTH)), nb.write(FAR, value), everything)
    assert sim.flags(FIRST_FLAG, len(FAR)) == value
    ones = FAR_WIDTH - len(FAR) + value.bit_count()
    assert sum(row[0] == "-" for row in sim.generators()) == ones


@pytest.mark.parametrize("builder", [nb.clear, lambda qubits: nb.free(qubits, check=True)])
def test_far_qubits_are_cleared_and_nothing_is_asserted(
    sim: CliffordSimulator, builder: Callable[[list[int]], nb.RecordArray]
) -> None:
    sim.enable_qubit_debugging()
    sim.run(nb.reset(FAR_WIDTH), nb.x(range(FAR_WIDTH)), nb.h(FAR[::2]), builder(FAR))
    signs = [row[0] for row in sim.generators()]
    assert [qubit for qubit, sign in enumerate(signs) if sign == "+"] == FAR
    assert sim.events() == []


def test_a_product_of_far_qubits_is_measured(sim: CliffordSimulator) -> None:
    ghz = [nb.h(1), nb.x([100, 191], controls=1)]
    sim.run(nb.reset(FAR_WIDTH), *ghz, nb.ppm([1, 100, 191], (), FIRST_FLAG))
    sim.run(nb.ppm([1, 100, 191], [100, 191], FIRST_FLAG + 1))
    sim.run(nb.ppm([1, 100, 191], [100, 191], FIRST_FLAG + 2, sign=-1))
    # X X X is +1 on that state, and so X Y Y is -1.
    assert sim.flags(FIRST_FLAG, 3) == 0b010


def test_a_product_that_is_drawn_becomes_a_generator(sim: CliffordSimulator) -> None:
    sim.run(nb.reset(FAR_WIDTH), nb.ppm([1, 127], [63, 127], FIRST_FLAG))
    sign = "-" if sim.flags(FIRST_FLAG, 1) else "+"
    assert product({1: "X", 63: "Z", 127: "Y"}, FAR_WIDTH, sign) in sim.generators()


def test_a_product_whose_letters_of_one_kind_lie_far_only(sim: CliffordSimulator) -> None:
    sim.run(nb.reset(FAR_WIDTH), nb.ppr(90.0, [100, 191], 3))
    flipped = [qubit for qubit, row in enumerate(sim.generators()) if row[0] == "-"]
    assert flipped == [100, 191]


def test_zero_controls_are_plain_controls() -> None:
    with Simulator("StreamCliffordQPU", allow_inexact_controls=True) as sim:
        sim.run(nb.reset(100), nb.x(70, zeros=99), nb.x(99), nb.x(3, zeros=99))
        sim.run(nb.read([3, 70], 2))
        assert sim.flags(2, 2) == 0b01


def test_one_qubit_is_peeked_at_and_selected(sim: CliffordSimulator) -> None:
    sim.run(nb.reset(100), nb.h(31), nb.x(99, controls=31))
    assert sim.peek_probability(1 << 31, 1 << 31) == 0.5
    sim.postselect(1 << 31, 1 << 31)
    assert sim.peek_probability(1 << 31, 1 << 31) == 1.0
    sim.run(nb.read(99, FIRST_FLAG))
    assert sim.flags(FIRST_FLAG, 1) == 1


ROWS: dict[str, Callable[[CliffordSimulator], object]] = {
    "generators": lambda sim: sim.generators(),
    "destabilizers": lambda sim: sim.destabilizers(),
}


@pytest.mark.parametrize("name", ROWS)
def test_there_are_no_rows_before_a_reset(sim: CliffordSimulator, name: str) -> None:
    with pytest.raises(RuntimeError) as caught:
        ROWS[name](sim)
    assert caught.value.args == (NO_REGISTER,)


@pytest.mark.parametrize("name", ROWS)
@pytest.mark.parametrize("filter_type", ["StreamBitQPU", "StreamQPU", "StreamSparseQPU"])
def test_other_filters_have_no_rows(name: str, filter_type: str) -> None:
    text = (
        f"^a \"{filter_type}\" filter has no operation '{name}'; "
        'only "StreamCliffordQPU" filters have it$'
    )
    other: Any = Simulator(filter_type)
    with other:
        other.run(nb.reset(1))
        with pytest.raises(AttributeError, match=text):
            ROWS[name](other)


@pytest.mark.parametrize("name", ROWS)
def test_there_are_no_rows_after_the_end(name: str) -> None:
    with Simulator("StreamCliffordQPU") as sim:
        sim.run(nb.reset(1))
    with pytest.raises(ValueError, match=r"^the simulator is closed$"):
        ROWS[name](sim)


@pytest.mark.parametrize("name", ["terms", "state", "push_state", "probabilities", "sample"])
def test_a_tableau_has_no_amplitudes(sim: CliffordSimulator, name: str) -> None:
    text = f'^a "StreamCliffordQPU" filter has no operation \'{name}\'; only "StreamQPU" '
    with pytest.raises(AttributeError, match=text):
        getattr(sim, name)
