"""Compare whole circuits on the dense filter with other state-vector simulators.

    python bench/circuits.py [--qubits N,N,...] [--circuits NAME,...] [--peers NAME,...]
                             [--repeats N] [--threads N] [--json PATH]

Task: a circuit of circuit_lists.py on a register that is there already. Circuits are built and
translated before they are timed, and no time has a reset in it. This engine takes the circuit in
one call for each record, and in one call for the whole list; both end with `finish`.

Goals: the whole list in at most 0.35 of the time of the fastest peer in double precision, and in
no more than the time of qsim, which computes in single precision, from 16 qubits on. One record a
call in at most 1.1 times the time of the whole list, from 12 qubits on. The random two-qubit gates
of "volume" have no goal, since no record takes a matrix of two qubits.

Peers: Qiskit Aer with and without fusion, Qulacs with and without its optimiser,
PennyLane-Lightning and qsim, which come with `pip install nimbrel[bench]`. One that is missing is
named and left out. All must agree on a random state's image before they are timed, in turn. On
more than 24 qubits one peer's register at a time is in memory.
"""

import argparse
import os
import sys
from collections.abc import Collection, Iterable, Iterator, Sequence
from functools import partial
from typing import Any

import engine
import harness
import numpy as np
import peers
from circuit_lists import CIRCUITS
from gates import DENSE_SEED, Gate
from numpy_models import random_state
from report import BATCHED, ENGINE, Comparison, Figure, Report

QUBITS = (12, 16, 20)  # on 24 a circuit takes minutes
WIDEST_TOGETHER = 24  # qubits; above, the registers of all peers need too much memory
WIDE_CIRCUITS = ("qft", "qaoa", "brickwork")  # those run on still more qubits unless named
QSIM = "qsim"
PEERS = {
    "lightning": ("lightning", "Dense"),
    "qulacs": ("qulacs", "Dense"),
    "qulacs-opt": ("qulacs", "Optimized"),
    "aer": ("aer", "Dense"),
    "aer-fused": ("aer", "Fused"),
    QSIM: ("qsim", "Dense"),
}
"""Peer -> its module among the peers, and its class there."""
TOLERANCE = 1e-9  # norm of the difference of two states of norm 1
SINGLE_TOLERANCE = 1e-5  # the same for a peer in single precision
SLICE = 1 << 20  # amplitudes compared at once
RUN_SECONDS = 0.01
TASK_SECONDS = 30.0  # no further round of a circuit is begun after that time
PATIENCE = 3.0  # seconds for each peer: its threads may have been disturbed in the first runs
WITHOUT_GOAL = "volume"
PEER_GOAL_QUBITS = 16
CALLS_GOAL_QUBITS = 12
RATIOS = ("over double", "over qsim", "calls over list")
LEAST_COLUMN = 9  # characters
DOUBLE_GOAL, QSIM_GOAL, CALLS_GOAL = 0.35, 1.0, 1.1


def distance(found: peers.Amplitudes, expected: peers.Amplitudes) -> float:
    """The norm of the difference, without a third array of that size."""
    starts = range(0, len(found), SLICE)
    parts = (np.linalg.norm(found[s : s + SLICE] - expected[s : s + SLICE]) for s in starts)
    return float(np.linalg.norm(list(parts)))


def check_own(
    register: engine.Dense, gates: Sequence[Gate], start: peers.Amplitudes
) -> peers.Amplitudes:
    """Check that both ways of sending the records give the same bits, and return the state.

    Raises:
        WrongResultError: If they do not.
    """
    states = []
    for calls in (register.calls(gates), register.whole_call(gates)):
        register.load(start)
        register.timer_of(calls)(1)
        states.append(register.state())
    if not np.array_equal(states[0].view(np.uint64), states[1].view(np.uint64)):
        raise harness.WrongResultError("one record a call and the whole list give other bits")
    return states[0]


def check_peer(
    name: str,
    register: peers.DenseRegister,
    gates: Sequence[Gate],
    start: peers.Amplitudes,
    expected: peers.Amplitudes,
) -> None:
    """Compare a peer's state after the circuit with this engine's.

    Raises:
        WrongResultError: If it differs.
    """
    register.load(start)
    register.apply(gates)
    off = distance(register.state(), expected)
    if not off <= (SINGLE_TOLERANCE if name == QSIM else TOLERANCE):  # also when not a number
        raise harness.WrongResultError(f"{name}: the state differs by {off:.2g}")


def compare(
    circuit: str, num_qubits: int, classes: dict[str, Any], arguments: argparse.Namespace
) -> Comparison:
    """Check and time a circuit on one width."""
    gates = CIRCUITS[circuit](num_qubits)
    start = random_state(num_qubits, DENSE_SEED)
    own = engine.Dense(num_qubits, arguments.threads)
    expected = check_own(own, gates, start)
    groups = [classes]
    if num_qubits > WIDEST_TOGETHER and classes:
        groups = [{name: make} for name, make in classes.items()]
    seconds: dict[str, float] = {}
    for group in groups:
        registers = {name: make(num_qubits, arguments.threads) for name, make in group.items()}
        for name, register in registers.items():
            check_peer(name, register, gates, start, expected)
        for name, found in time_together(own, registers, gates, arguments.repeats).items():
            seconds[name] = min(found, seconds.get(name, found))
        for register in registers.values():
            register.close()
    own.close()
    return Comparison(circuit, num_qubits, seconds, details={"gates": len(gates)})


def time_together(
    own: engine.Dense,
    registers: dict[str, peers.DenseRegister],
    gates: Sequence[Gate],
    repeats: int,
) -> dict[str, float]:
    """Time this engine, in both ways, and peers in turn; the seconds of one run of each."""
    # With a finish in each repetition, no gate waits for those of the next one.
    finish = (own.finish, ())
    timers = {
        ENGINE: own.timer_of([*own.calls(gates), finish]),
        BATCHED: own.timer_of([*own.whole_call(gates), finish]),
    }
    timers |= {name: register.timer(gates) for name, register in registers.items()}
    limits = {name: r.max_gates // len(gates) for name, r in registers.items()}
    effort = harness.Effort(RUN_SECONDS, repeats, TASK_SECONDS, PATIENCE)
    contenders = {
        name: [harness.BestTime(timer, effort, max(1, limits.get(name, harness.MOST_REPETITIONS)))]
        for name, timer in timers.items()
    }
    return harness.time_in_turns(contenders, effort, pace=_double(registers))


def _double(names: Collection[str]) -> list[str]:
    """The peers among them that compute in double precision."""
    return [name for name in names if name not in (ENGINE, BATCHED, QSIM)]


def ratios(cell: Comparison) -> Iterator[Figure]:
    """The three ratios of a circuit with their goals; those that can be told."""
    title, own = f"{cell.task}/{cell.num_qubits}", cell.seconds[BATCHED]
    goals: tuple[float | None, ...] = (
        DOUBLE_GOAL if cell.num_qubits >= PEER_GOAL_QUBITS else None,
        QSIM_GOAL if cell.num_qubits >= PEER_GOAL_QUBITS else None,
        CALLS_GOAL if cell.num_qubits >= CALLS_GOAL_QUBITS else None,
    )
    if cell.task == WITHOUT_GOAL:
        goals = (None, None, None)
    double = [cell.seconds[name] for name in _double(cell.seconds)]
    qsim = cell.seconds.get(QSIM)
    found = (
        own / min(double) if double else None,
        own / qsim if qsim else None,
        cell.seconds[ENGINE] / own,
    )
    for name, ratio, goal in zip(RATIOS, found, goals, strict=True):
        if ratio is not None:
            yield Figure(f"{title} {name}", ratio, at_most=goal)


class Table:
    """The table of one width, printed row by row, because a row may take minutes."""

    def __init__(self, num_qubits: int, peer_names: Iterable[str]) -> None:
        self._names = [ENGINE, BATCHED, *peer_names]
        self._head = ["circuit", "gates", "calls", "list", *self._names[2:], *RATIOS]
        print(f"\n{num_qubits} qubits: ms of a circuit, and ratios of the list; * misses its goal")
        self._print(self._head)

    def add(self, cell: Comparison) -> None:
        """Print a circuit's times and ratios."""
        times = [cell.seconds.get(name) for name in self._names]
        shown = {figure.name.partition(" ")[2]: figure for figure in ratios(cell)}
        row = [cell.task, f"{cell.details['gates']:g}"]
        row += ["-" if each is None else f"{1e3 * each:.4g}" for each in times]
        self._print(row + [_text(shown[name]) if name in shown else "- " for name in RATIOS])

    def _print(self, row: Sequence[str]) -> None:
        first, *rest = [max(len(head), LEAST_COLUMN) for head in self._head]
        columns = [f"{text:>{width}}" for text, width in zip(row[1:], rest, strict=True)]
        print("  ".join([f"{row[0]:<{first}}", *columns]), flush=True)


def _text(figure: Figure) -> str:
    return f"{figure.value:.2f}{'*' if figure.verdict == 'MISSED' else ' '}"


def print_verdict(figures: Sequence[Figure]) -> None:
    """Print how many goals were reached, and the ratios that missed theirs."""
    judged = [figure for figure in figures if figure.goal]
    missed = [figure for figure in judged if figure.verdict == "MISSED"]
    if judged:
        print(f"\n{len(judged) - len(missed)} of {len(judged)} ratios reach their goal")
    if missed:
        print("missed: " + ", ".join(f"{figure.name} {figure.value:.2f}" for figure in missed))


def load_peers(names: Sequence[str]) -> tuple[dict[str, Any], dict[str, str]]:
    """Import peers; as `peers.load`, with two classes of some modules."""
    classes: dict[str, Any] = {}
    versions: dict[str, str] = {}
    for name in names:
        module, kind = PEERS[name]
        found, known = peers.load(kind, [module])
        if found:
            classes[name] = found[module]
        versions |= known
    return classes, versions


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Compare all circuits, one width after the other."""
    if arguments.threads is not None:  # read by the peers when they are imported
        for variable in ("OMP_NUM_THREADS", "QULACS_NUM_THREADS"):
            os.environ[variable] = str(arguments.threads)
    classes, versions = load_peers(arguments.peers)
    report.add_simulators(versions)
    for width in arguments.qubits:
        wide = width > WIDEST_TOGETHER
        names = arguments.circuits or (WIDE_CIRCUITS if wide else tuple(CIRCUITS))
        table = Table(width, classes)
        for name in names:
            harness.show(f"{width} qubits, {name}")
            try:
                cell = compare(name, width, classes, arguments)
            except harness.WrongResultError as error:
                raise harness.WrongResultError(f"{name} on {width} qubits: {error}") from error
            harness.show("")
            table.add(cell)
            report.comparisons.append(cell)
            report.figures += ratios(cell)
    print_verdict(report.figures)


def parse_arguments() -> argparse.Namespace:
    """The command line; lists are checked here."""
    parser = harness.argument_parser(__doc__, repeats=7)
    widths = partial(harness.widths, 6, 28)
    parser.add_argument("--qubits", help="widths, such as 16,24", type=widths, default=QUBITS)
    parser.add_argument("--circuits", type=partial(harness.names, list(CIRCUITS)))
    parser.add_argument("--peers", type=partial(harness.names, list(PEERS)), default=list(PEERS))
    parser.add_argument("--threads", type=harness.at_least(1), help="threads of every simulator")
    return parser.parse_args()


if __name__ == "__main__":
    sys.exit(harness.run(benchmark, parse_arguments()))
