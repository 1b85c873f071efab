"""Compute the time of circuits on clusters from the figures of mpi.py on this machine.

    python bench/scale/mpi.py --qubits 26 --ranks 2 --json figures.json
    python bench/scale/scaling_model.py figures.json [--circuits NAME,...]

Measured: the time of gates for each amplitude, and the rate of exchanges between two ranks of one
machine. Computed: which exchanges the plan of a circuit has, how much of a part leaves the node,
and the times. A node is taken for 32 of the measured machines of two cores: 64 ranks, each as fast
as a measured one. Writes the tables of docs/scaling.md.
"""

# ruff: noqa: E402 - mpi4py is set up before anything imports it

from __future__ import annotations

import argparse
import json
import sys
from pathlib import Path
from typing import Any, NamedTuple

import mpi4py

mpi4py.rc.initialize = False  # the plan needs no ranks

sys.path.insert(0, str(Path(__file__).parents[1]))

from circuit_lists import CIRCUITS
from gates import records_of
from nimbrel.mpi.operations import plain_form
from nimbrel.mpi.placement import Placement
from nimbrel.mpi.plan import Exchange, steps
from nimbrel.suspect_search import as_words

QUBITS = (36, 38, 40, 42, 44)
NODES = (64, 256, 1024, 4096, 16384)
RANKS_OF_NODE = 64
NODE_BITS = RANKS_OF_NODE.bit_length() - 1
MEMORY = 512 * 2**30
BANDWIDTHS = (25e9, 100e9)  # bytes a second that a node sends while it receives as many
AMPLITUDE = 16  # bytes
CIRCUITS_SHOWN = ("qft", "qaoa", "brickwork")


class Plan(NamedTuple):
    """The exchanges of a circuit.

    Attributes:
        gates: Records.
        exchanges: Steps in which ranks exchange.
        across: Parts of the state that each node sends to others, in all steps together.
        inside: Parts that move between ranks of one node.
    """

    gates: int
    exchanges: int
    across: float
    inside: float


def plan_of(circuit: str, num_qubits: int, nodes: int) -> Plan:
    """Plan a circuit as the ranks do."""
    records = records_of(CIRCUITS[circuit](num_qubits))
    words = plain_form(as_words(records), num_qubits)
    placement = Placement(num_qubits, nodes * RANKS_OF_NODE)
    found = [step for step in steps(words, placement, words[:0, 0]) if isinstance(step, Exchange)]
    across = inside = 0.0
    for step in found:
        far = sum(bit >= NODE_BITS for bit, _ in step.pairs)
        leaves = 1 - 0.5**far
        across += leaves
        inside += 1 - 0.5 ** len(step.pairs) - leaves
    return Plan(len(records), len(found), across, inside)


class Machine(NamedTuple):
    """What was measured.

    Attributes:
        gate_seconds: Seconds a gate and amplitude on one rank, by circuit.
        exchange_rate: Bytes a second that a rank sends inside a machine.
    """

    gate_seconds: dict[str, float]
    exchange_rate: float


def machine_of(figures: dict[str, Any]) -> Machine:
    """Take the figures of two ranks on the largest width."""
    rows = [row for row in figures["rows"] if row["ranks"] == 2]
    largest = max(row["qubits"] for row in rows)
    rows = [row for row in rows if row["qubits"] == largest]
    gates = {
        row["circuit"]: (row["seconds"] - row["exchange_seconds"])
        / (row["gates"] * 2 ** (row["qubits"] - 1))
        for row in rows
    }
    sent = sum(row["bytes_sent"] for row in rows)
    return Machine(gates, sent / sum(row["exchange_seconds"] for row in rows))


def seconds_of(machine: Machine, circuit: str, qubits: int, nodes: int, plan: Plan) -> list[float]:
    """The seconds of gates, of exchanges inside nodes, and of those across at each bandwidth."""
    part = 2**qubits / (nodes * RANKS_OF_NODE)
    gates = machine.gate_seconds[circuit] * plan.gates * part
    inside = plan.inside * part * AMPLITUDE / machine.exchange_rate
    across = plan.across * part * AMPLITUDE * RANKS_OF_NODE
    return [gates, inside, *(across / bandwidth for bandwidth in BANDWIDTHS)]


def table(machine: Machine, circuit: str) -> None:
    """Write the table of a circuit."""
    print(f"\n### {circuit}\n")
    print(
        "| Qubits | Nodes | GiB a node | Exchanges | Parts sent | Gates, s | Inside, s "
        "| Network at 25 GB/s, s | at 100 GB/s, s | Whole, s | Efficiency |"
    )
    print("| ---: " * 11 + "|")
    for qubits in QUBITS:
        first: tuple[int, float] | None = None
        for nodes in NODES:
            # Half of a node's memory at most, since a part is a power of two.
            if AMPLITUDE * 2**qubits / nodes > MEMORY / 2:
                continue
            plan = plan_of(circuit, qubits, nodes)
            gates, inside, slow, fast = seconds_of(machine, circuit, qubits, nodes, plan)
            slow_all, fast_all = gates + inside + slow, gates + inside + fast
            first = first or (nodes, slow_all * nodes)
            size = AMPLITUDE * 2**qubits / nodes / 2**30
            print(
                f"| {qubits} | {nodes:,} | {size:.3g} | {plan.exchanges} | "
                f"{plan.across:.2f} | {gates:.3g} | {inside:.3g} | {slow:.3g} | {fast:.3g} | "
                f"{slow_all:.3g}, {fast_all:.3g} | {first[1] / (slow_all * nodes):.0%} |"
            )


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("figures", type=Path, help="the file of mpi.py --json")
    parser.add_argument("--circuits", type=lambda text: text.split(","), default=CIRCUITS_SHOWN)
    arguments = parser.parse_args()
    machine = machine_of(json.loads(arguments.figures.read_text(encoding="utf-8")))
    print(f"A rank sends {machine.exchange_rate / 1e9:.2f} GB/s inside a machine.")
    for circuit, seconds in machine.gate_seconds.items():
        print(f"A gate of {circuit} takes {seconds * 1e9:.3f} ns an amplitude on one rank.")
    for circuit in arguments.circuits:
        table(machine, circuit)


if __name__ == "__main__":
    main()
