"""Fixed outcomes of random circuits of proper gates, beside those of stim's tableau simulator.

Nothing is printed in between, so the filter's state is never brought into another form.
"""

from __future__ import annotations

import random
from collections import Counter
from types import ModuleType
from typing import Any

import nimbrel as nb
import pytest

from support.clifford import CliffordFilter, open_clifford
from support.stim_states import stim

CIRCUITS = {1: 150, 2: 150, 3: 150, 5: 150, 17: 150, 63: 70, 64: 70, 65: 70, 200: 30, 513: 10}
"""Width of the register -> number of circuits."""
FLAG = 2
ONE_QUBIT_GATES = {"H": nb.h, "S": nb.s, "S_DAG": nb.s_inv, "X": nb.x, "Y": nb.y, "Z": nb.z}


def gates(rng: random.Random, width: int, circuit: Any) -> list[nb.RecordArray]:
    """Random gates, a few for each qubit, also added to stim's circuit."""
    records = []
    for _ in range(4 * width):
        if width > 1 and rng.random() < 0.5:
            name = rng.choice(("CX", "CX", "SWAP"))
            a, b = rng.sample(range(width), 2)
            circuit.append(name, (a, b))
            records.append(nb.swap(a, b) if name == "SWAP" else nb.x(b, controls=a))
        else:
            name = rng.choice(("H", "H", *ONE_QUBIT_GATES))
            qubit = rng.randrange(width)
            circuit.append(name, qubit)
            records.append(ONE_QUBIT_GATES[name](qubit))
    return records


def measure(filter_: CliffordFilter, simulator: Any, qubit: int) -> bool:
    """Measures on both sides. Returns whether stim knows the outcome; if not, it follows."""
    filter_.run(nb.read(qubit, FLAG))
    outcome = filter_.flag(FLAG)
    expectation = simulator.peek_z(qubit)
    assert expectation in (0, 1 - 2 * outcome), f"qubit {qubit} gave {outcome}"
    simulator.postselect_z(qubit, desired_value=bool(outcome))
    return bool(expectation)


def follow_circuit(filter_: CliffordFilter, rng: random.Random, width: int) -> Counter[bool]:
    """Runs two circuits with measurements behind each. Counts what `measure` returns."""
    found: Counter[bool] = Counter()
    simulator = stim.TableauSimulator()
    simulator.set_num_qubits(width)
    for _ in range(2):
        circuit = stim.Circuit()
        filter_.run(*gates(rng, width, circuit))
        simulator.do(circuit)
        for _ in range(min(2 * width, 20)):
            found[measure(filter_, simulator, rng.randrange(width))] += 1
    return found


@pytest.mark.parametrize("width", CIRCUITS)
def test_fixed_outcomes_are_those_of_stim(
    engine: ModuleType, rng: random.Random, width: int
) -> None:
    found: Counter[bool] = Counter()
    with open_clifford(engine) as filter_:
        for _ in range(CIRCUITS[width]):
            filter_.reset(width)
            found += follow_circuit(filter_, rng, width)
    assert min(found[False], found[True]) >= 20, found
