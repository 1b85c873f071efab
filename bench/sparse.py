"""Time the sparse filter, alone and beside the sparse simulator of the package qdk.

    python bench/sparse.py [--repeats N] [--alone] [--json PATH]

Alone, on 2^18 terms spread over the register: walks over the list beside NumPy's copy of an array
as large as the list, made in turn with them; Hadamards; and the memory of a pair walk. Beside the
peer: Toffoli arithmetic, and Hadamards with phases, on 2^12 and 2^16 superposed inputs. Goal: no
longer than the peer. A circuit runs from a register in 0 to the outcome of a measurement of its
qubits, and both simulators must agree on the state before that measurement before they are timed,
in turn. Records are made and the peer's circuit is compiled beforehand. The peer comes with
`pip install nimbrel[bench]`; without it that part is left out.
"""

import argparse
import multiprocessing
import random
import sys
from collections.abc import Iterator, Sequence
from functools import partial
from itertools import pairwise
from pathlib import Path
from typing import Any

import engine
import nimbrel as nb
import numpy as np
import peers
from gates import Circuit, Gate
from harness import WrongResultError, argument_parser, best_seconds, run, seconds_of, timed
from numpy_models import after_hadamards, after_walk
from report import ENGINE, Comparison, Figure, Report

SUPERPOSED = 18
TERMS = 1 << SUPERPOSED
NUM_QUBITS = 50
SPREAD = range(1, 2 * SUPERPOSED, 2)
FREE = 0  # a qubit in 0
WORDS_PER_TERM = 3
PEAK_QUBITS = 21
PEAK_KINDS = ("growing", "paired", "lopsided", "uneven")
TERM_BYTES = 8 * WORDS_PER_TERM
ALONE_SEED = 20_250_612

COPY_GOAL = 1.5
TURN_GOAL = 60.0
ADJACENT_GOAL = 20.0
PEAK_GOAL = 2.5

SEED = 20_250_611
INPUTS = (12, 16)
ADDITIONS = 2
LAYERS = 4
TOLERANCE = 1e-9
MOST_PEER_ROUNDS = 5  # one takes the peer seconds

WALKS = {
    "X": nb.x(FREE),
    "CNOT": nb.x(FREE, controls=SPREAD[3]),
    "Toffoli": nb.x(FREE, controls=[SPREAD[3], SPREAD[9]]),
    "Z": nb.z(SPREAD[4]),
    "inverse T": nb.t_inv(SPREAD[4]),
    "T": nb.t(SPREAD[4]),
    "controlled phase": nb.phase(33.0, SPREAD[4], controls=SPREAD[11]),
}


# What the filter reaches alone.


def superposed() -> nb.RecordArray:
    """Records that make a state of `TERMS` terms, none of them 0."""
    turns = np.random.default_rng(ALONE_SEED).uniform(20, 160, SUPERPOSED)
    phases = [nb.phase(angle, qubit) for angle, qubit in zip(turns, SPREAD, strict=True)]
    return nb.program(nb.reset(NUM_QUBITS), nb.h(SPREAD), *phases)


def scrambling(qubits: Sequence[int]) -> nb.RecordArray:
    """A network of CNOTs between superposed qubits, after which no qubit orders the list."""
    rng = random.Random(SEED)
    pairs = [rng.sample(qubits, 2) for _ in range(6 * len(qubits))]
    return nb.program(*[nb.x(target, controls=control) for target, control in pairs])


def check_alone(sim: nb.SparseSimulator) -> None:
    """Compare every walk, and Hadamards on an ordered and a scrambled list, with NumPy.

    Raises:
        WrongResultError: If the terms differ.
    """
    for name, gate in WALKS.items():
        sim.run(superposed())
        indices, amplitudes = after_walk(gate[0], sim.terms())
        sim.run(gate)
        found, walked = sim.terms()
        if not np.array_equal(found, indices) or not np.allclose(walked, amplitudes):
            raise WrongResultError(f"{name}: the terms differ from NumPy's")
    for before in (nb.program(), scrambling(SPREAD)):
        sim.run(superposed(), before)
        # The terms come in order of their superposed qubits, so they are a dense state of those.
        expected = after_hadamards(sim.terms()[1])
        sim.run(nb.h(SPREAD))
        if not np.allclose(sim.terms()[1], expected, atol=1e-12):
            raise WrongResultError("Hadamards: the terms differ from NumPy's")


def walk_figures(sim: nb.Simulator, repeats: int) -> Iterator[Figure]:
    """The time of each walk over that of a copy of the list."""
    sim.run(superposed())
    source = np.ones((TERMS, WORDS_PER_TERM))
    copy = timed(partial(np.copyto, np.zeros_like(source), source))
    walks = [timed(partial(sim.run, gate)) for gate in WALKS.values()]
    copied, *walked = best_seconds([copy, *walks], repeats)
    for name, seconds in zip(WALKS, walked, strict=True):
        yield Figure(name, seconds / copied, "times a copy of the list", COPY_GOAL)


def hadamard_figures(sim: nb.Simulator, repeats: int) -> Iterator[Figure]:
    """Nanoseconds of a Hadamard for each term of the list after it, in four situations."""
    start, mess = superposed(), scrambling(SPREAD)
    last = SPREAD[-1]
    grown = nb.program(nb.reset(NUM_QUBITS), nb.h(SPREAD[:-1]))
    rows: list[tuple[str, nb.RecordArray, nb.RecordArray, float]] = [
        ("Hadamards on targets in turn", start, nb.h(SPREAD), TURN_GOAL),
        ("Hadamard on a scrambled list", nb.program(start, mess), nb.h(SPREAD[7]), TURN_GOAL),
        ("Hadamard that doubles the list", grown, nb.h(last), TURN_GOAL),
        ("Hadamard, partners adjacent", nb.program(start, nb.h(last)), nb.h(last), ADJACENT_GOAL),
    ]
    for name, before, gate, goal in rows:
        targets = int(gate[0]["target_mask"]).bit_count()
        seconds = min(_seconds_after(sim, before, gate) for _ in range(repeats))
        yield Figure(name, seconds / targets / TERMS * 1e9, "ns a term", goal)


def _seconds_after(sim: nb.Simulator, before: nb.RecordArray, gate: nb.RecordArray) -> float:
    sim.run(before)
    return seconds_of(partial(sim.run, gate))


def peak_figures() -> Iterator[Figure]:
    """Memory at the peak of pair walks, each in a new process, since a peak never falls."""
    with multiprocessing.get_context("spawn").Pool(1, maxtasksperchild=1) as pool:
        for kind, peak in zip(PEAK_KINDS, pool.map(peak_ratio, PEAK_KINDS, 1), strict=True):
            name = f"peak of the walk of a list, {kind}"
            yield Figure(name, peak, "times the larger list", PEAK_GOAL)


def peak_ratio(kind: str) -> float:
    """Peak of this process above what it held before the walk, over the larger list's bytes."""

    def kilobytes(field: str) -> int:
        status = Path("/proc/self/status").read_text(encoding="ascii")
        return int(status.partition(f"{field}:")[2].split()[0])

    before, walk, terms = peak_steps(kind, PEAK_QUBITS)
    with nb.Simulator("StreamSparseQPU") as sim:
        sim.run(nb.reset(PEAK_QUBITS + 2))
        held = kilobytes("VmRSS")
        sim.run(before, walk)
        if sim.num_stored_terms() != terms:
            raise WrongResultError(f"there are {sim.num_stored_terms()} terms and not {terms}")
        return (kilobytes("VmHWM") - held) * 1024 / (TERM_BYTES * terms)


def peak_steps(kind: str, num_qubits: int) -> tuple[nb.RecordArray, nb.RecordArray, int]:
    """The records before a walk over a list in no order, its own records, the terms after it.

    The list doubles to 2**num_qubits terms ("growing"), has that many terms with a partner each
    ("paired"), has two terms more, which get their partners ("lopsided"), or was ordered just
    before by merging a large side into a small one ("uneven").
    """
    full, qubits = 1 << num_qubits, range(num_qubits)
    if kind == "growing":
        new = num_qubits - 1
        return nb.program(nb.h(qubits[:-1]), scrambling(qubits[:-1])), nb.h(new), full
    if kind == "paired":
        return nb.program(nb.h(qubits), scrambling(qubits)), nb.h(qubits[-1]), full
    if kind == "uneven":
        # Seven terms of eight get the qubit on top. The walks order the list and do not act.
        on_top = nb.program(nb.x(num_qubits), nb.x(num_qubits, controls=qubits[:3]))
        never = num_qubits + 1
        merged, walk = nb.h(num_qubits, controls=never), nb.h(qubits[-1], controls=never)
        return nb.program(nb.h(qubits), on_top, merged, scrambling(qubits)), walk, full
    few = nb.h(num_qubits, controls=qubits[:-1])  # in one of two settings of the last qubit each
    return nb.program(nb.h(qubits), few, scrambling(qubits[1:])), nb.h(0), full + 4


# Circuits beside the peer.


def adder(a: Sequence[int], b: Sequence[int], carries: Sequence[int]) -> list[Gate]:
    """Gates of b += a modulo 2**n: Toffolis and CNOTs. The n - 1 carries begin and end as 0."""

    def carry(k: int) -> list[Gate]:
        # The majority of a, b and the carry in: a AND b, or the carry where they differ.
        gates = [Gate("TOFFOLI", (a[k], b[k], carries[k]))]
        if k > 0:
            differ = Gate("CNOT", (a[k], b[k]))
            gates += [differ, Gate("TOFFOLI", (b[k], carries[k - 1], carries[k])), differ]
        return gates

    def add(k: int) -> list[Gate]:
        return [Gate("CNOT", (addend, b[k])) for addend in [a[k], *carries[k - 1 : k]]]

    last = len(carries)
    forward = [gate for k in range(last) for gate in carry(k)]
    backward = [gate for k in reversed(range(last)) for gate in (*carry(k)[::-1], *add(k))]
    return [*forward, *add(last), *backward]


def toffoli_arithmetic(inputs: int) -> Circuit:
    """Add every number of `inputs` bits to a constant, `ADDITIONS` times over."""
    a, b = range(inputs), range(inputs, 2 * inputs)
    num_qubits = 3 * inputs - 1
    constant = random.Random(SEED).getrandbits(inputs) | 1
    gates = [Gate("H", (qubit,)) for qubit in a]
    gates += [Gate("X", (b[k],)) for k in range(inputs) if constant >> k & 1]
    gates += ADDITIONS * adder(a, b, range(2 * inputs, num_qubits))
    note = f"{ADDITIONS} additions of {inputs} superposed bits by Toffolis and CNOTs"
    return Circuit(f"Toffoli{inputs}", note, num_qubits, tuple(gates), range(num_qubits))


def hadamards_and_phases(inputs: int) -> Circuit:
    """Layers of Hadamards with phases and controlled phases between them, on spread qubits."""
    rng = random.Random(SEED)
    qubits = sorted(rng.sample(range(NUM_QUBITS), inputs))
    layer = [Gate("H", (qubit,)) for qubit in qubits]
    gates = list(layer)
    for _ in range(LAYERS):
        gates += [Gate("PHASE", (qubit,), rng.uniform(10, 170)) for qubit in qubits]
        gates += [Gate("CPHASE", pair, rng.uniform(10, 170)) for pair in pairwise(qubits)]
        gates += layer
    note = f"{LAYERS} layers of {inputs} Hadamards, phases and controlled phases"
    return Circuit(f"Hadamard{inputs}", note, NUM_QUBITS, tuple(gates), qubits)


def compare(circuit: Circuit, terms: int, make_peer: Any, repeats: int) -> Comparison:
    """Check that both simulators reach the same state of so many terms, then time them in turn."""
    ours, peer = engine.Sparse(circuit), make_peer(circuit)
    check_same_state(circuit.name, ours.state(), peer.state(), terms)
    timers = [ours.seconds, peer.seconds, peer.idle_seconds]
    best = best_seconds(timers, min(repeats, MOST_PEER_ROUNDS))
    ours.close()
    peer.close()
    seconds = {ENGINE: best[0], "qdk": best[1]}
    details = {"gates": len(circuit.gates), "qdk's call ms": round(1e3 * best[2], 3)}
    goals = {"qdk": 1.0}
    return Comparison(circuit.name, circuit.num_qubits, seconds, goals, details, circuit.note)


def check_same_state(
    name: str, ours: peers.Terms, expected: peers.Terms, expected_terms: int
) -> None:
    """Compare the states after the gates, phases included.

    Raises:
        WrongResultError: If they differ, or are not as large as the circuit makes them.
    """
    indices, amplitudes = ours
    kept = np.abs(amplitudes) > TOLERANCE
    if len(expected[0]) != expected_terms or not np.array_equal(indices[kept], expected[0]):
        raise WrongResultError(f"{name}: qdk has other terms")
    if not np.allclose(amplitudes[kept], expected[1], rtol=0, atol=TOLERANCE):
        raise WrongResultError(f"{name}: qdk has other amplitudes")


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Take the figures of the filter alone, then compare it with the peer."""
    with nb.Simulator("StreamSparseQPU") as sim:
        check_alone(sim)
        figures = [*walk_figures(sim, arguments.repeats), *hadamard_figures(sim, arguments.repeats)]
    report.add_figures(f"the sparse filter on {TERMS} terms", [*figures, *peak_figures()])
    classes, versions = peers.load("Sparse", [] if arguments.alone else ["qdk"])
    report.add_simulators(versions)
    for make_peer in classes.values():
        found = [
            compare(make(inputs), 1 << inputs, make_peer, arguments.repeats)
            for make in (toffoli_arithmetic, hadamards_and_phases)
            for inputs in INPUTS
        ]
        report.add_comparisons("one run from reset to outcome, best of all rounds", found)


if __name__ == "__main__":
    parser = argument_parser(__doc__, repeats=15)
    parser.add_argument("--alone", action="store_true", help="leave the peer out")
    sys.exit(run(benchmark, parser.parse_args()))
