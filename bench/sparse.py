"""Time the sparse filter, alone and beside the sparse simulator of the package qdk.

    python bench/sparse.py [--repeats N] [--alone] [--json PATH]

Alone, on 2^18 terms: walks over the list beside a plain copy of it, Hadamards, and the memory
of a pair walk. Beside the peer: Toffoli arithmetic, and Hadamards with phases, on 2^12 and 2^16
superposed inputs. Goal: no longer than the peer. A program runs from a register in 0 to the
outcome of a measurement of its qubits, and both simulators must agree on the state before that
measurement before they are timed, in turn. Records are made and the peer's program is compiled
beforehand. The peer comes with `pip install nimbrel[bench]`; without it that part is left out.
"""

import importlib
import importlib.metadata
import sys
from collections.abc import Callable, Sequence
from dataclasses import asdict, dataclass
from typing import Any

import numpy as np
from harness import PeerBenchmark, WrongResultError, best_seconds, run_beside_peers
from sparse_engine import Engine
from sparse_machine import engine_figures, print_engine_figures
from sparse_tasks import Program, hadamards_and_phases, toffoli_arithmetic

INPUTS = (12, 16)
TOLERANCE = 1e-9
MOST_PEER_ROUNDS = 5  # one takes the peer seconds


@dataclass(frozen=True)
class Comparison:
    """Times of one program.

    Attributes:
        program: Its name.
        task: What it does, in words.
        gates: Number of its gates.
        engine_ms: Milliseconds of this engine.
        peer_ms: Milliseconds of the peer.
        peer_call_ms: Those of them that its call takes without a gate.
    """

    program: str
    task: str
    gates: int
    engine_ms: float
    peer_ms: float
    peer_call_ms: float

    @property
    def ratio(self) -> float:
        """This engine's time over the peer's."""
        return self.engine_ms / self.peer_ms


def programs() -> list[Program]:
    """All programs that are compared."""
    return [make(k) for make in (toffoli_arithmetic, hadamards_and_phases) for k in INPUTS]


def compare(task: Program, make_peer: Callable[[Program], Any], repeats: int) -> Comparison:
    """Check that both simulators reach the same state, then time them in turn.

    Raises:
        WrongResultError: If they do not.
    """
    engine, peer = Engine(task), make_peer(task)
    check_same_state(engine, peer, task)
    calls = [engine.run, peer.run, peer.idle]
    times = [1e3 * seconds for seconds in best_seconds(calls, min(repeats, MOST_PEER_ROUNDS))]
    engine.close()
    peer.close()
    return Comparison(task.name, task.task, len(task.gates), *times)


def check_same_state(engine: Any, peer: Any, task: Program) -> None:
    """Compare the states after the gates, phases included.

    Raises:
        WrongResultError: If they differ, or are not as large as the program says.
    """
    (found, amplitudes), (expected, peer_amplitudes) = engine.state(), peer.state()
    kept = np.abs(amplitudes) > TOLERANCE
    if len(expected) != 1 << task.inputs or not np.array_equal(found[kept], expected):
        raise WrongResultError(f"{task.name}: {peer.name} has other terms")
    if not np.allclose(amplitudes[kept], peer_amplitudes, rtol=0, atol=TOLERANCE):
        raise WrongResultError(f"{task.name}: {peer.name} has other amplitudes")


def compare_all(repeats: int) -> list[Comparison]:
    """Compare every program; an empty list, and a word why, without the peer."""
    try:
        make_peer = importlib.import_module("sparse_peer_qdk").Qdk
    except (ImportError, OSError) as error:
        print(f"\nqdk is missing, nothing compared: {error}")
        return []
    print(f"\nbeside qdk {importlib.metadata.version('qdk')}; goal: ratio 1.00 or less")
    return [compare(task, make_peer, repeats) for task in programs()]


def print_comparisons(comparisons: Sequence[Comparison]) -> None:
    """Print one row per program."""
    print(
        f"{'program':<14}{'gates':>6}{'nimbrel ms':>12}{'qdk ms':>12}{'its call':>10}{'ratio':>8}"
    )
    for each in comparisons:
        times = f"{each.engine_ms:>12.2f}{each.peer_ms:>12.2f}{each.peer_call_ms:>10.2f}"
        verdict = "met" if each.ratio <= 1 else "MISSED"
        print(f"{each.program:<14}{each.gates:>6}{times}{each.ratio:>8.3f}  {verdict}  {each.task}")


BENCHMARK: PeerBenchmark[Comparison] = PeerBenchmark(
    script="sparse.py",
    description="Time the sparse filter.",
    measure=engine_figures,
    print_figures=print_engine_figures,
    compare=compare_all,
    print_comparisons=print_comparisons,
    json_name="beside_qdk",
    as_json=lambda each: asdict(each) | {"ratio": each.ratio},
)


if __name__ == "__main__":
    sys.exit(run_beside_peers(BENCHMARK))
