"""Time the Clifford filter, alone and beside Qiskit Aer and Stim.

    python bench/clifford.py [--repeats N] [--alone] [--json PATH]

Alone, on 1,000 qubits: what a gate costs for each row of the tableau. Beside the peers: the same
random circuits on 50 to 2,000 qubits, all of them measured at the end, once with outcomes that
are nearly all drawn and once with outcomes that are all fixed. Goals: no longer than Aer's
stabilizer method, and at most twice as long as Stim's tableau simulator up to 64 qubits; beyond,
Stim's ratio is shown for information. Circuits are made beforehand on every side, one record or
instruction a gate, and one run goes from a register in 0 to the outcomes. This engine's and
Stim's times include the call and the fetching of the outcomes in Python; Aer's is the one of its
own clock, which leaves the conversion of circuits and results in Python out. All simulators must
agree before they are timed, in turn. The peers come with `pip install nimbrel[bench]`; one that
is missing is left out.
"""

import importlib
import importlib.metadata
import sys
from collections.abc import Callable, Sequence
from contextlib import closing
from dataclasses import asdict, dataclass

from clifford_circuits import Circuit, mirror_circuit, random_circuit
from clifford_engine import Contestant, Engine
from clifford_machine import engine_figures, print_engine_figures
from harness import PeerBenchmark, WrongResultError, run_beside_peers

WIDTHS = (50, 200, 1000, 2000)
DEPTH = 20
PEERS = {"aer": ("clifford_peer_aer", "Aer", "qiskit-aer"),
         "stim": ("clifford_peer_stim", "Stim", "stim")}  # fmt: skip
AER_GOAL = 1.0
STIM_GOAL = 2.0
STIM_WIDEST = 64  # qubits; gates on wider registers are out of reach of a tableau of rows
MOST_PEER_ROUNDS = 5  # Aer takes seconds to convert a wide circuit

MakeContestant = Callable[[Circuit], Contestant]


@dataclass(frozen=True)
class Comparison:
    """Times of one circuit.

    Attributes:
        circuit: Its name.
        task: What it does, in words.
        num_qubits: Width of the register.
        gates: Number of its gates.
        milliseconds: Of each simulator, by its name.
    """

    circuit: str
    task: str
    num_qubits: int
    gates: int
    milliseconds: dict[str, float]

    def ratio(self, peer: str) -> float:
        """This engine's time over a peer's."""
        return self.milliseconds[Engine.name] / self.milliseconds[peer]

    def goal(self, peer: str) -> float | None:
        """The most that the ratio may be; None when it is only shown."""
        if peer == "stim":
            return STIM_GOAL if self.num_qubits <= STIM_WIDEST else None
        return AER_GOAL

    def verdict(self, peer: str) -> str:
        """Whether the goal was met, in a word; empty without a goal."""
        goal = self.goal(peer)
        if goal is None:
            return ""
        return "met" if self.ratio(peer) <= goal else "MISSED"


def circuits() -> list[Circuit]:
    """All circuits that are compared."""
    return [
        circuit
        for width in WIDTHS
        for circuit in (random_circuit(width, DEPTH), mirror_circuit(width, DEPTH // 2))
    ]


def peers() -> dict[str, MakeContestant]:
    """The peers that are installed; a word about each."""
    found: dict[str, MakeContestant] = {}
    for name, (module, contestant, package) in PEERS.items():
        try:
            found[name] = getattr(importlib.import_module(module), contestant)
        except (ImportError, OSError) as error:
            print(f"\n{package} is missing, not compared: {error}")
        else:
            print(f"\nbeside {package} {importlib.metadata.version(package)}")
    return found


def compare(circuit: Circuit, makers: Sequence[MakeContestant], repeats: int) -> Comparison:
    """Check that all simulators agree, then time them in turn.

    Raises:
        WrongResultError: If they do not.
    """
    with closing(Engine(circuit)) as engine:
        contestants = [engine, *[make(circuit) for make in makers]]
        check_generators(circuit, contestants)
        check_outcomes(circuit, contestants)
        best = dict.fromkeys([each.name for each in contestants], float("inf"))
        for _ in range(min(repeats, MOST_PEER_ROUNDS)):
            for each in contestants:
                best[each.name] = min(best[each.name], 1e3 * each.seconds())
    return Comparison(circuit.name, circuit.task, circuit.num_qubits, len(circuit.gates), best)


def check_generators(circuit: Circuit, contestants: Sequence[Contestant]) -> None:
    """Compare the states after the gates, row by row and with signs.

    Raises:
        WrongResultError: If they differ.
    """
    engine, *others = contestants
    expected = engine.generators()
    for peer in others:
        if peer.widest_rows is not None and circuit.num_qubits > peer.widest_rows:
            continue
        if peer.generators() != expected:
            raise WrongResultError(f"{title(circuit)}: {peer.name} has other generators")


def check_outcomes(circuit: Circuit, contestants: Sequence[Contestant]) -> None:
    """Compare outcomes that are fixed; of others, ask Stim whether they can be.

    Raises:
        WrongResultError: If they are not the ones expected, or cannot be.
    """
    found = {each.name: each.outcomes() for each in contestants}
    expected = found[Engine.name]
    for name, outcomes in found.items():
        if len(outcomes) != circuit.num_qubits:
            raise WrongResultError(f"{title(circuit)}: {name} has not measured every qubit")
        if circuit.is_certain and outcomes != expected:
            raise WrongResultError(f"{title(circuit)}: {name} has other outcomes")
        for judge in contestants:
            if not judge.allows(outcomes):
                raise WrongResultError(f"{title(circuit)}: {name} has outcomes that cannot be")


def title(circuit: Circuit) -> str:
    """A circuit in words."""
    return f"{circuit.name} on {circuit.num_qubits} qubits"


def print_comparisons(comparisons: Sequence[Comparison]) -> None:
    """Print one row per circuit: times, and the ratios with their verdicts."""
    names = list(comparisons[0].milliseconds)
    heads = "".join(f"{f'{name} ms':>12}" for name in names)
    ratios = "".join(f"{f'over {name}':>20}" for name in names[1:])
    print(f"\n{'circuit':<9}{'qubits':>7}{'gates':>8}{heads}{ratios}")
    for each in comparisons:
        times = "".join(f"{each.milliseconds[name]:>12.3f}" for name in names)
        shown = "".join(f"{each.ratio(peer):>12.3f}{each.verdict(peer):>8}" for peer in names[1:])
        line = f"{each.circuit:<9}{each.num_qubits:>7}{each.gates:>8}{times}{shown}  {each.task}"
        print(line)


def compare_all(repeats: int) -> list[Comparison]:
    """Compare every circuit; an empty list without a peer."""
    makers = [*peers().values()]
    return [compare(each, makers, repeats) for each in circuits()] if makers else []


BENCHMARK: PeerBenchmark[Comparison] = PeerBenchmark(
    script="clifford.py",
    description="Time the Clifford filter.",
    measure=engine_figures,
    print_figures=print_engine_figures,
    compare=compare_all,
    print_comparisons=print_comparisons,
    json_name="beside_peers",
    as_json=asdict,
)


if __name__ == "__main__":
    sys.exit(run_beside_peers(BENCHMARK))
