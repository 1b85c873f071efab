"""Time the Clifford filter, alone and beside Qiskit Aer and Stim.

    python bench/clifford.py [--repeats N] [--alone] [--json PATH]

Alone, on 1,000 qubits: nanoseconds of a gate for each row of the two tables. Gates wait until
something looks at the tableau and then pass over it together. So each gate is timed twice: in a
run of many, with one look at the end, and alone, with a measurement behind each that a run of the
measurements alone is taken off for.

Beside the peers: the same random circuits on 50 to 2,000 qubits, all of them measured at the end,
once with outcomes that are nearly all drawn and once with outcomes that are all fixed. Goals: no
longer than Aer's stabilizer method, and at most twice as long as Stim's tableau simulator up to 64
qubits; beyond, Stim's ratio is shown for information. Circuits are made beforehand on every side,
one record or instruction a gate, and one run goes from a register in 0 to the outcomes. This
engine's and Stim's times include the call and the fetching of the outcomes in Python; Aer's is
the one of its own clock. All simulators must agree before they are timed, in turn. The peers come
with `pip install nimbrel[bench]`; one that is missing is left out.
"""

import argparse
import random
import sys
from collections.abc import Iterable, Iterator, Sequence
from functools import partial
from typing import Any

import engine
import nimbrel as nb
import peers
from gates import Circuit, Gate, record_of, records_of
from harness import WrongResultError, argument_parser, best_seconds, run, timed
from numpy_models import tableau_rows
from report import ENGINE, Comparison, Figure, Report

SEED = 20_250_701
# There is no controlled Z among them: the filter's leaves the signs of the tableau alone.
ONE_QUBIT_GATES = ("H", "S", "S_INV", "X", "Y", "Z")
INVERSES = {"S": "S_INV", "S_INV": "S"}

NUM_QUBITS = 1000
ROWS = 2 * NUM_QUBITS
WATCHED = 0  # no gate touches this qubit, so a measurement of it finds 0 and changes nothing
GATE_QUBITS = range(1, NUM_QUBITS)
CHECKED_QUBITS = 1024  # a register of this width is printed whole
BATCHED_GATES = 20_000
LOOKS = 400
MIXING_LAYERS = 12
GOALS = dict.fromkeys(ONE_QUBIT_GATES, 1.5) | {"CNOT": 2.5}  # ns a row

WIDTHS = (50, 200, 1000, 2000)
DEPTH = 20
AER_GOAL = 1.0
STIM_GOAL = 2.0
STIM_WIDEST = 64  # qubits; gates on wider registers are out of reach of a tableau of rows
MOST_PEER_ROUNDS = 5  # Aer takes seconds to convert a wide circuit


def layers(qubits: Sequence[int], count: int, rng: random.Random) -> list[Gate]:
    """So many layers of a gate on each qubit, then CNOTs on random pairs of them all."""
    gates = []
    for _ in range(count):
        gates += [Gate(rng.choice(ONE_QUBIT_GATES), (qubit,)) for qubit in qubits]
        order = rng.sample(qubits, len(qubits))
        gates += [Gate("CNOT", pair) for pair in zip(order[::2], order[1::2], strict=False)]
    return gates


# What the filter reaches alone.


def gates_of_kind(name: str, count: int) -> list[Gate]:
    """So many gates of a kind, on random qubits."""
    rng = random.Random(SEED)
    size = 2 if name == "CNOT" else 1
    return [Gate(name, tuple(rng.sample(GATE_QUBITS, size))) for _ in range(count)]


def mixing() -> list[Gate]:
    """Gates after which every row has letters everywhere but on the watched qubit."""
    return layers(GATE_QUBITS, MIXING_LAYERS, random.Random(SEED))


def with_looks(gates: Iterable[Gate]) -> nb.RecordArray:
    """Gates as records, each with a measurement behind it."""
    look = nb.read(WATCHED)
    return nb.program(*[part for gate in gates for part in (record_of(gate), look)])


def check_gates(sim: nb.CliffordSimulator) -> None:
    """Compare the rows after all kinds of gates, in a run and with looks between, with NumPy's.

    Raises:
        WrongResultError: If they differ.
    """
    gates = [gate for name in GOALS for gate in gates_of_kind(name, LOOKS // 4)]
    expected = tableau_rows(CHECKED_QUBITS, [*mixing(), *gates])
    for name, records in (("in a run", records_of(gates)), ("with looks", with_looks(gates))):
        sim.run(nb.reset(CHECKED_QUBITS), records_of(mixing()), records)
        if [*sim.destabilizers(), *sim.generators()] != expected:
            raise WrongResultError(f"gates {name}: the rows differ from NumPy's")


def alone_figures(sim: nb.Simulator, repeats: int) -> Iterator[Figure]:
    """Each kind of gate in a run, with one look at its end, and each with a look behind it."""
    sim.run(nb.reset(NUM_QUBITS), records_of(mixing()))

    def best(programs: Iterable[nb.RecordArray]) -> list[float]:
        return best_seconds([timed(partial(sim.run, each)) for each in programs], repeats)

    look = nb.read(WATCHED)
    runs = [nb.program(records_of(gates_of_kind(name, BATCHED_GATES)), look) for name in GOALS]
    looks = nb.program(*[look] * LOOKS)
    lone = [with_looks(gates_of_kind(name, LOOKS)) for name in GOALS]
    for name, seconds in zip(GOALS, best(runs), strict=True):
        nanoseconds = seconds / BATCHED_GATES / ROWS * 1e9
        yield Figure(f"{name} in a run", nanoseconds, "ns a row", GOALS[name])
    looked, *gross = best([looks, *lone])
    for name, seconds in zip(GOALS, gross, strict=True):
        nanoseconds = (seconds - looked) / LOOKS / ROWS * 1e9
        yield Figure(f"{name} alone", nanoseconds, "ns a row", GOALS[name])


# Circuits beside the peers.


def random_circuit(num_qubits: int) -> Circuit:
    """Layers of random gates, after which nearly every outcome is drawn."""
    gates = layers(range(num_qubits), DEPTH, random.Random(SEED))
    return Circuit("random", f"{DEPTH} layers", num_qubits, tuple(gates), range(num_qubits))


def mirror_circuit(num_qubits: int) -> Circuit:
    """Layers, a random Pauli on each qubit, and the layers undone: every outcome is fixed."""
    rng = random.Random(SEED)
    qubits = range(num_qubits)
    forward = layers(qubits, DEPTH // 2, rng)
    middle = [Gate(rng.choice(("X", "Y", "Z")), (qubit,)) for qubit in qubits]
    backward = [gate._replace(name=INVERSES.get(gate.name, gate.name)) for gate in forward[::-1]]
    note = f"{DEPTH // 2} layers, Paulis, undone"
    return Circuit("mirror", note, num_qubits, (*forward, *middle, *backward), qubits, True)


def compare(circuit: Circuit, classes: dict[str, Any], repeats: int) -> Comparison:
    """Check that all simulators agree, then time them in turn."""
    programs: dict[str, peers.CliffordProgram] = {
        name: make(circuit) for name, make in ({ENGINE: engine.Clifford} | classes).items()
    }
    check(circuit, programs)
    timers = [program.seconds for program in programs.values()]
    seconds = best_seconds(timers, min(repeats, MOST_PEER_ROUNDS))
    for program in programs.values():
        program.close()
    goals = {"aer": AER_GOAL} | ({"stim": STIM_GOAL} if circuit.num_qubits <= STIM_WIDEST else {})
    found = dict(zip(programs, seconds, strict=True))
    details = {"gates": len(circuit.gates)}
    return Comparison(circuit.name, circuit.num_qubits, found, goals, details, circuit.note)


def check(circuit: Circuit, programs: dict[str, peers.CliffordProgram]) -> None:
    """Compare the states after the gates, row by row and with signs, and the outcomes.

    Outcomes that are fixed must be the same. Of others, Stim tells whether they can be.

    Raises:
        WrongResultError: If they differ, or cannot be.
    """
    title = f"{circuit.name} on {circuit.num_qubits} qubits"
    rows = programs[ENGINE].state()
    for name, program in programs.items():
        widest = program.widest_state
        if (widest is None or circuit.num_qubits <= widest) and program.state() != rows:
            raise WrongResultError(f"{title}: {name} has other generators")
    found = {name: program.outcomes() for name, program in programs.items()}
    for name in programs:
        if len(found[name]) != circuit.num_qubits:
            raise WrongResultError(f"{title}: {name} has not measured every qubit")
        if circuit.is_certain and found[name] != found[ENGINE]:
            raise WrongResultError(f"{title}: {name} has other outcomes")
        if not all(judge.allows(found[name]) for judge in programs.values()):
            raise WrongResultError(f"{title}: {name} has outcomes that cannot be")


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Take the figures of the filter alone, then compare it with its peers."""
    with nb.Simulator("StreamCliffordQPU") as sim:
        check_gates(sim)
        title = f"the Clifford filter on {NUM_QUBITS} qubits, {ROWS} rows, best of all rounds"
        report.add_figures(title, alone_figures(sim, arguments.repeats))
    classes, versions = peers.load("Clifford", [] if arguments.alone else ["aer", "stim"])
    report.add_simulators(versions)
    if classes:
        circuits = [make(width) for width in WIDTHS for make in (random_circuit, mirror_circuit)]
        found = [compare(each, classes, arguments.repeats) for each in circuits]
        report.add_comparisons("one run from reset to outcomes, best of all rounds", found)


if __name__ == "__main__":
    parser = argument_parser(__doc__, repeats=15)
    parser.add_argument("--alone", action="store_true", help="leave the peers out")
    sys.exit(run(benchmark, parser.parse_args()))
