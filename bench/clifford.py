"""Time the Clifford filter, alone and beside Qiskit Aer and Stim.

    python bench/clifford.py [--repeats N] [--alone] [--json PATH]

Alone: nanoseconds of a gate on 1,000 qubits for each row of the two tables, in a run of many and
with a measurement behind each, that a run of the measurements alone is taken off for; a gate and a
fixed measurement by turns; the time of a reset of 10,000 qubits beside that of clearing as much
memory; and the memory of a register beside the bits of its tables.

Beside the peers, two kinds of circuits. All are made beforehand on every side, one record a gate.

- Rounds of error correction, in which gates, measurements with mostly fixed outcomes and resets
  alternate: a surface code, a repetition code and a colour code. Our time is that of one call with
  the array of records, Stim's that of a new tableau simulator and its call with the circuit.
- Random circuits on 50 to 5,000 qubits, all of them measured at the end, once with outcomes that
  are nearly all drawn and once with outcomes that are all fixed. Our time is that of one call and
  of fetching the outcomes, Stim's likewise; Aer's is the one of its own clock.

Goals: no longer than Stim's tableau simulator, and a tenth of the time of Aer's stabilizer method
from 1,000 qubits on, both by the median of all rounds. All simulators must agree before they are
timed, in turn. The peers come with `pip install nimbrel[bench]`; one that is missing is left out.
"""

import argparse
import importlib
import os
import random
import sys
from collections.abc import Iterable, Iterator, Sequence
from functools import partial
from pathlib import Path
from typing import Any

import _lib_nb_sim
import codes
import engine
import nimbrel as nb
import numpy as np
import peers
from gates import FIRST_FLAG, Circuit, Gate, record_of, records_of
from harness import (
    WrongResultError,
    argument_parser,
    best_seconds,
    median_seconds,
    run,
    timed,
)
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

WIDTHS = (50, 200, 1000, 2000, 5000)
DEPTH = 20
STIM_GOAL = 1.0
AER_GOALS = {True: 0.1, False: 1.0}  # by whether the register has WIDE_QUBITS or more
WIDE_QUBITS = 1000
WIDEST_JUDGED = 2000
PEER_ROUNDS = 3  # Aer takes seconds to convert a wide circuit

SURFACE_CODES = ((3, 10), (5, 10), (9, 20), (15, 10), (25, 5))  # distance, rounds
REPETITION_CODES = ((5, 20), (51, 20), (501, 5))
COLOUR_CODES = ((3, 10), (6, 10), (12, 10))  # hexagons a side, rounds

TURNS = 20_000
TURN_GOAL = 200.0  # ns of a gate and a fixed measurement
RESET_QUBITS = 10_000
RESET_GOAL = 1.5  # times the clearing of the same memory
MEMORY_QUBITS = 5000  # enough that single pages do not count
MEMORY_GOAL = 1.1  # times the bits of both tables


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


def turns_figure(sim: nb.Simulator, repeats: int) -> Figure:
    """A gate and a fixed measurement by turns."""
    gates = gates_of_kind("CNOT", TURNS)
    sim.run(nb.reset(NUM_QUBITS))
    [seconds] = best_seconds([timed(partial(sim.run, with_looks(gates)))], repeats)
    return Figure("CNOT and fixed read", seconds / TURNS * 1e9, "ns", TURN_GOAL)


def reset_figure(sim: nb.Simulator, repeats: int) -> Figure:
    """A reset of a wide register beside the clearing of as many bits."""
    reset, bits = nb.reset(RESET_QUBITS), np.empty(bytes_of_tables(RESET_QUBITS), np.uint8)
    timers = [timed(partial(sim.run, reset)), timed(partial(bits.fill, 0))]
    ours, clearing = best_seconds(timers, repeats)
    return Figure(f"reset of {RESET_QUBITS} over clearing", ours / clearing, "", RESET_GOAL)


def bytes_of_tables(num_qubits: int) -> int:
    """Memory of the bits of both tables."""
    return num_qubits * num_qubits // 2


def memory_figure() -> Figure:
    """The memory that goes with a register of random rows, beside the bits of both tables."""
    gates = records_of(layers(range(MEMORY_QUBITS), 2, random.Random(SEED)))
    with nb.Simulator("StreamCliffordQPU") as sim:
        sim.run(nb.reset(MEMORY_QUBITS), gates, nb.read(range(MEMORY_QUBITS)))
        with_register = resident_bytes()
        sim.run(nb.reset(1))
        used = with_register - resident_bytes()
    ratio = used / bytes_of_tables(MEMORY_QUBITS)
    return Figure(f"memory of {MEMORY_QUBITS} over bits", ratio, "", MEMORY_GOAL)


def resident_bytes() -> int:
    """Memory of this process that is in use."""
    pages = int(Path("/proc/self/statm").read_text(encoding="ascii").split()[1])
    return pages * os.sysconf("SC_PAGESIZE")


# Rounds of error correction.


def all_rounds() -> list[codes.Rounds]:
    """The circuits of all codes."""
    return [
        *(codes.surface_code(*each) for each in SURFACE_CODES),
        *(codes.repetition_code(*each) for each in REPETITION_CODES),
        *(codes.colour_code(*each) for each in COLOUR_CODES),
    ]


def compare_rounds(rounds: codes.Rounds, repeats: int) -> Comparison:
    """Check the outcomes by Stim, then time both in turn."""
    stim: Any = importlib.import_module("stim")
    records, circuit = codes.records_of(rounds), codes.stim_circuit_of(rounds)
    with nb.Simulator("StreamCliffordQPU") as sim:
        sim.run(records)
        outcomes = sim.flags(FIRST_FLAG, rounds.num_outcomes)
        check_rounds(rounds, circuit, outcomes)
        ours = timed(partial(_lib_nb_sim.put_instructions, sim.handle, records, len(records)))
        theirs = timed(lambda: stim.TableauSimulator().do(circuit))
        our_seconds, their_seconds = median_seconds([ours, theirs], repeats)
    seconds = {ENGINE: our_seconds, "stim": their_seconds}
    details = {"records": len(records)}
    goals = {"stim": STIM_GOAL}
    return Comparison(rounds.name, rounds.num_qubits, seconds, goals, details, rounds.note)


def check_rounds(rounds: codes.Rounds, circuit: Any, outcomes: int) -> None:
    """Project Stim's state on the outcomes, one after the other.

    Raises:
        WrongResultError: If one cannot be.
    """
    stim: Any = importlib.import_module("stim")
    follower = stim.TableauSimulator()
    follower.set_num_qubits(rounds.num_qubits)
    number = 0
    for instruction in circuit:
        measured = [target.value for target in instruction.targets_copy()]
        if instruction.name not in ("M", "MR"):
            follower.do(instruction)
            continue
        for qubit in measured:
            outcome = bool(outcomes >> number & 1)
            if follower.peek_z(qubit) == (-1) ** (not outcome):
                raise WrongResultError(f"{rounds.name}: outcome {number} cannot be {outcome:d}")
            follower.postselect_z(qubit, desired_value=outcome)
            if instruction.name == "MR" and outcome:
                follower.x(qubit)
            number += 1


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
    seconds = median_seconds(timers, PEER_ROUNDS if circuit.num_qubits >= WIDE_QUBITS else repeats)
    for program in programs.values():
        program.close()
    goals = {"aer": AER_GOALS[circuit.num_qubits >= WIDE_QUBITS], "stim": STIM_GOAL}
    found = dict(zip(programs, seconds, strict=True))
    details = {"gates": len(circuit.gates)}
    return Comparison(circuit.name, circuit.num_qubits, found, goals, details, circuit.note)


def check(circuit: Circuit, programs: dict[str, peers.CliffordProgram]) -> None:
    """Compare the states after the gates, row by row and with signs, and the outcomes.

    Outcomes that are fixed must be the same. Of others, Stim tells whether they can be, up to a
    width at which that takes minutes.

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
        is_judged = circuit.num_qubits <= WIDEST_JUDGED
        if is_judged and not all(judge.allows(found[name]) for judge in programs.values()):
            raise WrongResultError(f"{title}: {name} has outcomes that cannot be")


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Take the figures of the filter alone, then compare it with its peers."""
    with nb.Simulator("StreamCliffordQPU") as sim:
        check_gates(sim)
        title = f"the Clifford filter on {NUM_QUBITS} qubits, {ROWS} rows, best of all rounds"
        report.add_figures(title, alone_figures(sim, arguments.repeats))
        figures = [turns_figure(sim, arguments.repeats), reset_figure(sim, arguments.repeats)]
        report.add_figures("measurements, resets and memory", [*figures, memory_figure()])
    classes, versions = peers.load("Clifford", [] if arguments.alone else ["aer", "stim"])
    report.add_simulators(versions)
    if "stim" in classes:
        found = [compare_rounds(each, arguments.repeats) for each in all_rounds()]
        report.add_comparisons("rounds of error correction, median of all rounds", found)
    if classes:
        circuits = [make(width) for width in WIDTHS for make in (random_circuit, mirror_circuit)]
        found = [compare(each, classes, arguments.repeats) for each in circuits]
        report.add_comparisons("one run from reset to outcomes, median of all rounds", found)


if __name__ == "__main__":
    parser = argument_parser(__doc__, repeats=15)
    parser.add_argument("--alone", action="store_true", help="leave the peers out")
    sys.exit(run(benchmark, parser.parse_args()))
