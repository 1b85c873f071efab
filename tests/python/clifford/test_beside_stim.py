"""The Clifford filter beside stim, an independent stabilizer simulator, on random programs."""

from __future__ import annotations

from collections.abc import Callable
from types import ModuleType
from typing import Any

import nimbrel as nb
import pytest

from programs.drawn import DrawnRandom, check_programs
from support.clifford import CliffordFilter, open_clifford
from support.stim_states import canonical, canonical_of, stim, tableau_of

# Above 64 qubits only multiples of 64: then the printed text shows every qubit.
WIDTHS = [1, 2, 3, 5, 8, 63, 64, 128]
LETTERS = "_XZY"
EXPECTATIONS = {0: 0.5, 1: 1.0, -1: 0.0}  # of a Z, with the probability to read a 0


class Beside:
    """A filter and stim's simulator. The filter draws outcomes; stim projects on the same ones."""

    def __init__(self, filter_: CliffordFilter, num_qubits: int) -> None:
        self.filter = filter_
        self.num_qubits = num_qubits
        self.stim = stim.TableauSimulator()
        self.stim.set_num_qubits(num_qubits)

    def run(self, part: nb.RecordArray, name: str, *targets: Any) -> None:
        self.filter.run(part)
        if name:
            self.stim.do(stim.CircuitInstruction(name, targets))

    def follow(self, product: Any, outcome: int) -> None:
        """Projects stim's state on the filter's outcome, which must be possible."""
        expectation = self.stim.peek_observable_expectation(product)
        assert expectation in (0, 1 - 2 * outcome), f"{product} gave {outcome}"
        self.stim.postselect_observable(product, desired_value=bool(outcome))

    def compare_rows(self) -> None:
        """Compares the images of all X and Z. Not after measurements, which choose other rows."""
        images = self.stim.current_inverse_tableau().inverse()
        found = tableau_of(self.filter)
        qubits = range(self.num_qubits)
        assert list(found.generators) == [str(images.z_output(qubit)) for qubit in qubits]
        assert list(found.destabilizers) == [str(images.x_output(qubit)) for qubit in qubits]

    def compare_states(self) -> None:
        assert canonical(tableau_of(self.filter).generators) == canonical_of(self.stim)


def one_qubit_gate(rng: DrawnRandom, both: Beside) -> None:
    qubit = rng.randrange(both.num_qubits)
    name, build = rng.choice(GATES)
    both.run(build(qubit), name, qubit)


GATES: tuple[tuple[str, Callable[[int], nb.RecordArray]], ...] = (
    *(("H", nb.h), ("H", nb.h), ("S", nb.s), ("S_DAG", nb.s_inv)),
    *(("X", nb.x), ("Y", nb.y), ("Z", nb.z)),
    ("S", lambda qubit: nb.phase(90.0, qubit)),
    ("S_DAG", lambda qubit: nb.phase(-90.0, qubit)),
    ("S", lambda qubit: nb.rz(90.0, qubit)),
    ("Z", lambda qubit: nb.rz(180.0, qubit)),
)


def two_qubit_gate(rng: DrawnRandom, both: Beside) -> None:
    if both.num_qubits > 1:
        a, b = rng.sample(range(both.num_qubits), 2)
        name, build = rng.choice((("CX", lambda a, b: nb.x(b, controls=a)), ("SWAP", nb.swap)))
        both.run(build(a, b), name, a, b)


def random_product(rng: DrawnRandom, num_qubits: int) -> tuple[list[int], list[int], Any]:
    """The qubits with an X and those with a Z, some with both, and the same product for stim."""
    count = rng.choice((1, 1, 2, 3))
    qubits = rng.sample(range(num_qubits), min(count, num_qubits))
    qubits.append(min(qubits) % 64)  # the builders need a qubit of the first word
    letters = {qubit: rng.randint(1, 3) for qubit in qubits}
    product = stim.PauliString("".join(LETTERS[letters.get(q, 0)] for q in range(num_qubits)))
    xs = [qubit for qubit, letter in letters.items() if letter & 1]
    zs = [qubit for qubit, letter in letters.items() if letter & 2]
    return xs, zs, product


def rotation(rng: DrawnRandom, both: Beside) -> None:
    """Stim has only square roots of products. A rotation by 45 degrees is one of them."""
    xs, zs, product = random_product(rng, both.num_qubits)
    eighths = rng.randint(-4, 4)
    both.filter.run(nb.ppr(45.0 * eighths, xs, zs))
    root = stim.Circuit()
    root.append("SPP", stim.target_combined_paulis(product))
    for _ in range(eighths % 4):
        both.stim.do(root)


def read(rng: DrawnRandom, both: Beside) -> None:
    qubit = rng.randrange(both.num_qubits)
    expectation = both.stim.peek_z(qubit)
    if qubit < 32:
        assert both.filter.probability(0, 1 << qubit) == EXPECTATIONS[expectation]
    both.filter.run(nb.read(qubit, 2))
    z = stim.PauliString(both.num_qubits)
    z[qubit] = "Z"
    both.follow(z, both.filter.flag(2))


def measure_product(rng: DrawnRandom, both: Beside) -> None:
    xs, zs, product = random_product(rng, both.num_qubits)
    both.filter.run(nb.ppm(xs, zs, 2))
    both.follow(product, both.filter.flag(2))


STEPS = {one_qubit_gate: 6, two_qubit_gate: 4, rotation: 2, read: 2, measure_product: 2}
UNITARY = {one_qubit_gate: 6, two_qubit_gate: 4, rotation: 2}


def run_steps(rng: DrawnRandom, both: Beside, kinds: dict[Any, int]) -> None:
    for _ in rng.steps(20):
        rng.choices(list(kinds), weights=list(kinds.values()))[0](rng, both)


@pytest.mark.parametrize("width", WIDTHS)
def test_gates_turn_every_row_as_in_stim(engine: ModuleType, width: int) -> None:
    def compare(rng: DrawnRandom) -> None:
        with open_clifford(engine, width) as filter_:
            both = Beside(filter_, width)
            run_steps(rng, both, UNITARY)
            both.compare_rows()

    check_programs(compare, 30, width)


@pytest.mark.parametrize("width", WIDTHS)
def test_measured_states_are_those_of_stim(engine: ModuleType, width: int) -> None:
    def compare(rng: DrawnRandom) -> None:
        engine.random_seed(0, 1)
        with open_clifford(engine, width) as filter_:
            both = Beside(filter_, width)
            run_steps(rng, both, STEPS)
            both.compare_states()

    check_programs(compare, 30, width)
