"""What the sparse filter reaches on its own: walks beside a plain copy, Hadamards, memory.

The state has 2**18 terms on qubits that are spread over the register. The copy is NumPy's of an
array as large as the list, made in turn with the walks.
"""

import subprocess
import sys
from collections.abc import Callable, Sequence
from pathlib import Path

import nimbrel as nb
import numpy as np
import numpy.typing as npt
from harness import Figure, WrongResultError, best_seconds, print_figures, seconds_of
from sparse_engine import scrambling

SUPERPOSED = 18
TERMS = 1 << SUPERPOSED
NUM_QUBITS = 50
SPREAD = range(1, 2 * SUPERPOSED, 2)
FREE = 0  # a qubit in 0
WORDS_PER_TERM = 3
PEAK_QUBITS = 21
SEED = 20_250_612

COPY_GOAL = 1.5
TURN_GOAL = 60.0
ADJACENT_GOAL = 20.0
PEAK_GOAL = 2.5

Complex = npt.NDArray[np.complex128]

WALKS = {
    "X": nb.x(FREE),
    "CNOT": nb.x(FREE, controls=SPREAD[3]),
    "Toffoli": nb.x(FREE, controls=[SPREAD[3], SPREAD[9]]),
    "Z": nb.z(SPREAD[4]),
    "inverse T": nb.t_inv(SPREAD[4]),
    "T": nb.t(SPREAD[4]),
    "controlled phase": nb.phase(33.0, SPREAD[4], controls=SPREAD[11]),
}


def superposed() -> nb.RecordArray:
    """Records that make a state of `TERMS` terms, none of them 0."""
    turns = np.random.default_rng(SEED).uniform(20, 160, SUPERPOSED)
    phases = [nb.phase(angle, qubit) for angle, qubit in zip(turns, SPREAD, strict=True)]
    return nb.program(nb.reset(NUM_QUBITS), nb.h(SPREAD), *phases)


def check_walks(sim: nb.Simulator) -> None:
    """Compare every walk with NumPy.

    Raises:
        WrongResultError: If one differs.
    """
    for name, gate in WALKS.items():
        sim.run(superposed())
        indices, amplitudes = sim.terms()
        sim.run(gate)
        found, walked = sim.terms()
        expected = _walked(gate[0], indices, amplitudes)
        if not np.array_equal(found, expected[0]) or not np.allclose(walked, expected[1]):
            raise WrongResultError(f"{name}: the terms differ from NumPy's")


def _walked(
    gate: np.void, indices: npt.NDArray[np.uint64], amplitudes: Complex
) -> tuple[npt.NDArray[np.uint64], Complex]:
    target, controls = gate["target_mask"], gate["cond_mask"]
    if gate["opcode"] == nb.Opcode.X:
        moved = np.where(indices & controls == controls, indices ^ target, indices)
        order = np.argsort(moved)
        return moved[order], amplitudes[order]
    degrees = {nb.Opcode.Z: 180.0, nb.Opcode.T_INV: -45.0, nb.Opcode.T: 45.0}
    angle = degrees.get(gate["opcode"], float(gate["angle"]))
    turned = np.exp(1j * np.radians(angle))
    both = target | controls
    return indices, np.where(indices & both == both, amplitudes * turned, amplitudes)


def check_hadamards(sim: nb.Simulator) -> None:
    """Compare a Hadamard on every target, from an ordered and a scrambled list, with NumPy.

    Raises:
        WrongResultError: If the terms differ.
    """
    for before in (nb.program(), scrambling(SPREAD)):
        sim.run(superposed(), before)
        # The terms come in order of their superposed qubits, so they are a dense state of those.
        expected = sim.terms()[1]
        for place in range(SUPERPOSED):
            low, high = np.moveaxis(expected.reshape(-1, 2, 1 << place), 1, 0)
            expected = np.stack([low + high, low - high], axis=1).reshape(-1) / np.sqrt(2)
        sim.run(nb.h(SPREAD))
        if not np.allclose(sim.terms()[1], expected, atol=1e-12):
            raise WrongResultError("Hadamards: the terms differ from NumPy's")


def walk_figures(sim: nb.Simulator, repeats: int) -> list[Figure]:
    """The time of each walk over that of a copy of the list."""
    sim.run(superposed())
    source = np.ones((TERMS, WORDS_PER_TERM))
    dest = np.zeros_like(source)

    def copy() -> None:
        np.copyto(dest, source)

    calls = [copy, *[_runner(sim, gate) for gate in WALKS.values()]]
    copied, *walked = best_seconds(calls, repeats)
    return [
        Figure(name, seconds / copied, "times a copy of the list", COPY_GOAL)
        for name, seconds in zip(WALKS, walked, strict=True)
    ]


def hadamard_figures(sim: nb.Simulator, repeats: int) -> list[Figure]:
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
    figures = []
    for name, before, gate, goal in rows:
        targets = int(gate[0]["target_mask"]).bit_count()
        seconds = seconds_after(_runner(sim, before), _runner(sim, gate), repeats)
        figures.append(Figure(name, seconds / targets / TERMS * 1e9, "ns a term", goal))
    return figures


def peak_figures() -> list[Figure]:
    """Memory at the peak of pair walks, each in a process of its own."""
    script = Path(__file__).with_name("sparse_peak.py")
    figures = []
    for kind in ("growing", "paired", "lopsided", "uneven"):
        command = [sys.executable, str(script), str(PEAK_QUBITS), kind]
        done = subprocess.run(command, capture_output=True, text=True, check=True)
        name = f"peak of a {kind} list's walk"
        figures.append(Figure(name, float(done.stdout), "times the larger list", PEAK_GOAL))
    return figures


def seconds_after(before: Callable[[], None], call: Callable[[], None], repeats: int) -> float:
    """The least time of a call that needs something done before it each time."""
    best = float("inf")
    for _ in range(repeats):
        before()
        best = min(best, seconds_of(call))
    return best


def engine_figures(repeats: int) -> list[Figure]:
    """Check the engine, then take all its figures."""
    with nb.Simulator("StreamSparseQPU") as sim:
        check_walks(sim)
        check_hadamards(sim)
        return [*walk_figures(sim, repeats), *hadamard_figures(sim, repeats), *peak_figures()]


def print_engine_figures(figures: Sequence[Figure]) -> None:
    """Print one row per figure."""
    print(f"the sparse filter on {TERMS} terms, best of all rounds")
    print_figures(figures)


def _runner(sim: nb.Simulator, records: nb.RecordArray) -> Callable[[], None]:
    return lambda: sim.run(records)
