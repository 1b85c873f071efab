"""What the Clifford filter's gates cost on their own: nanoseconds a row of the two tables.

Gates wait until something looks at the tableau and then pass over it together. So each gate is
timed twice: in a run of many, with one look at the end, and alone, with a measurement behind
each that a run of the measurements alone is taken off for.
"""

import random
from collections.abc import Callable, Sequence

import nimbrel as nb
from clifford_circuits import ONE_QUBIT_GATES, SEED, Gate, layers
from clifford_engine import record_of, records_of
from clifford_numpy import TableauModel
from harness import Figure, WrongResultError, best_seconds, print_figures

NUM_QUBITS = 1000
ROWS = 2 * NUM_QUBITS
WATCHED = 0  # no gate touches this qubit, so a measurement of it finds 0 and changes nothing
GATE_QUBITS = range(1, NUM_QUBITS)
CHECKED_QUBITS = 1024  # a register of this width is printed whole
BATCHED_GATES = 20_000
LOOKS = 400
MIXING_LAYERS = 12

ONE_QUBIT_GOAL = 1.5
CNOT_GOAL = 2.5

KINDS = dict.fromkeys(ONE_QUBIT_GATES, ONE_QUBIT_GOAL) | {"CNOT": CNOT_GOAL}


def gates_of_kind(name: str, count: int) -> list[Gate]:
    """So many gates of a kind, on random qubits."""
    rng = random.Random(SEED)
    size = 2 if name == "CNOT" else 1
    return [Gate(name, tuple(rng.sample(GATE_QUBITS, size))) for _ in range(count)]


def mixing() -> list[Gate]:
    """Gates after which every row has letters everywhere but on the watched qubit."""
    return layers(GATE_QUBITS, MIXING_LAYERS, random.Random(SEED))


def with_looks(gates: Sequence[Gate]) -> nb.RecordArray:
    """Gates as records, each with a measurement behind it."""
    look = nb.read(WATCHED)
    return nb.program(*[part for gate in gates for part in (record_of(gate), look)])


def check_gates(sim: nb.Simulator) -> None:
    """Compare the rows after all kinds of gates, in a run and with looks between, with NumPy's.

    Raises:
        WrongResultError: If they differ.
    """
    gates = [gate for name in KINDS for gate in gates_of_kind(name, LOOKS // 4)]
    model = TableauModel(CHECKED_QUBITS)
    model.apply([*mixing(), *gates])
    for name, records in (("in a run", records_of(gates)), ("with looks", with_looks(gates))):
        sim.run(nb.reset(CHECKED_QUBITS), records_of(mixing()), records)
        if [*sim.destabilizers(), *sim.generators()] != model.rows():
            raise WrongResultError(f"gates {name}: the rows differ from NumPy's")


def batched_figures(sim: nb.Simulator, repeats: int) -> list[Figure]:
    """Each kind of gate, many in a run; the queueing and the look at the end are included."""
    calls = [
        _runner(sim, records_of(gates_of_kind(name, BATCHED_GATES)), nb.read(WATCHED))
        for name in KINDS
    ]
    return _figures("in a run", best_seconds(calls, repeats), BATCHED_GATES)


def alone_figures(sim: nb.Simulator, repeats: int) -> list[Figure]:
    """Each kind of gate with a look behind it, the looks taken off."""
    looks = nb.program(*[nb.read(WATCHED)] * LOOKS)
    calls = [_runner(sim, looks)]
    calls += [_runner(sim, with_looks(gates_of_kind(name, LOOKS))) for name in KINDS]
    looked, *gross = best_seconds(calls, repeats)
    return _figures("alone", [seconds - looked for seconds in gross], LOOKS)


def engine_figures(repeats: int) -> list[Figure]:
    """Check the engine, then take all its figures."""
    with nb.Simulator("StreamCliffordQPU") as sim:
        check_gates(sim)
        sim.run(nb.reset(NUM_QUBITS), records_of(mixing()))
        return [*batched_figures(sim, repeats), *alone_figures(sim, repeats)]


def print_engine_figures(figures: Sequence[Figure]) -> None:
    """Print one row per figure."""
    print(f"the Clifford filter on {NUM_QUBITS} qubits, {ROWS} rows, best of all rounds; gates in")
    print("a run pass over the tableau together, gates alone have a measurement behind each")
    print_figures(figures)


def _figures(situation: str, seconds: Sequence[float], gates: int) -> list[Figure]:
    return [
        Figure(f"{name} {situation}", total / gates / ROWS * 1e9, "ns a row", goal)
        for (name, goal), total in zip(KINDS.items(), seconds, strict=True)
    ]


def _runner(sim: nb.Simulator, *records: nb.RecordArray) -> Callable[[], None]:
    whole = nb.program(*records)
    return lambda: sim.run(whole)
