"""Compare circuits on MPI ranks with one process of two threads, on this machine.

    python bench/scale/mpi.py [--qubits N,N] [--circuits NAME,...] [--ranks N,...] [--repeats N]
                              [--json PATH]

Goal: on 2 ranks with one thread each at most 1.25 times the time of one process with two threads,
for "qft" and "qaoa". The circuits are those of circuit_lists.py, on a state without zeros. Before
a time counts, amplitudes of 64 terms are compared with those of one process.

Columns: the ratio of the times; exchanges; megabytes that a rank sends, for each gate; the rate at
which it sends during exchanges, in GB/s and over the rate of a copy in memory by as many processes;
memory that a rank takes beyond its part of the state.

scaling_model.py takes the file of --json.
"""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
from pathlib import Path
from typing import Any

WORKER = Path(__file__).with_name("mpi_worker.py")
CIRCUITS = ("qft", "qaoa", "brickwork")
THREADS = 2
GOAL = 1.25
GOAL_RANKS = 2
WITH_GOAL = ("qft", "qaoa")
TOLERANCE = 1e-9
HEAD = "circuit    qubits ranks  seconds  ratio  exchanges  MB/gate   GB/s  of copy  extra MiB"


class WrongResultError(Exception):
    """Ranks have other amplitudes than one process."""


def output_of(command: list[str]) -> dict[str, Any]:
    """Run a worker and return its line of JSON."""
    found = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True)
    parsed: dict[str, Any] = json.loads(found.stdout.splitlines()[-1])
    return parsed


def launcher(ranks: int) -> list[str]:
    """The command that starts ranks."""
    root = ["--allow-run-as-root"] if os.geteuid() == 0 else []
    waiting = ["--mca", "mpi_yield_when_idle", "1"]
    return ["mpirun", *root, "--oversubscribe", *waiting, "-n", str(ranks)]


def measured(circuit: str, qubits: int, repeats: int, ranks: int | None) -> dict[str, Any]:
    """Time a circuit on ranks, or in one process for None."""
    task = [sys.executable, str(WORKER), circuit, str(qubits), "--repeats", str(repeats)]
    if ranks is None:
        return output_of([*task, "--threads", str(THREADS)])
    return output_of([*launcher(ranks), *task])


def copy_rate(ranks: int) -> float:
    """Bytes a second that each of so many processes copies at the same time."""
    found = output_of([*launcher(ranks), sys.executable, str(WORKER), "copy", "24"])
    return float(found["copy_rate"])


def compare(circuit: str, qubits: int, ranks: list[int], repeats: int) -> list[dict[str, Any]]:
    """Time a circuit in one process and on each number of ranks.

    Raises:
        WrongResultError: If the amplitudes differ.
    """
    alone = measured(circuit, qubits, repeats, None)
    rows = []
    for number in ranks:
        row = measured(circuit, qubits, repeats, number)
        pairs = zip(row.pop("values"), alone["values"], strict=True)
        off = max(abs(complex(*found) - complex(*expected)) for found, expected in pairs)
        if not off <= TOLERANCE:
            raise WrongResultError(f"{circuit} on {number} ranks is off by {off:.2g}")
        row |= {"circuit": circuit, "qubits": qubits, "ranks": number}
        rows.append(row | {"ratio": row["seconds"] / alone["seconds"]})
    return rows


def line_of(row: dict[str, Any], rates: dict[int, float]) -> str:
    """One line of the table."""
    rate = row["bytes_sent"] / row["exchange_seconds"] if row["exchanges"] else 0.0
    megabytes = row["bytes_sent"] / 1e6 / row["gates"]
    goal = row["ranks"] == GOAL_RANKS and row["circuit"] in WITH_GOAL
    verdict = (" goal met" if row["ratio"] <= GOAL else " goal missed") if goal else ""
    return (
        f"{row['circuit']:<10} {row['qubits']:>6} {row['ranks']:>5} {row['seconds']:>8.3f} "
        f"{row['ratio']:>6.2f} {row['exchanges']:>10} {megabytes:>8.2f} "
        f"{rate / 1e9:>6.2f} {rate / rates[row['ranks']]:>8.2f} {row['extra_bytes'] / 2**20:>10.1f}"
        f"{verdict}"
    )


def numbers(text: str) -> list[int]:
    return [int(part) for part in text.split(",")]


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--qubits", type=numbers, default=[24, 26])
    parser.add_argument("--circuits", type=lambda text: text.split(","), default=list(CIRCUITS))
    parser.add_argument("--ranks", type=numbers, default=[1, 2, 4])
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--json", type=Path)
    arguments = parser.parse_args()
    rates = {ranks: copy_rate(ranks) for ranks in arguments.ranks}
    print(HEAD)
    rows: list[dict[str, Any]] = []
    for qubits in arguments.qubits:
        for circuit in arguments.circuits:
            found = compare(circuit, qubits, arguments.ranks, arguments.repeats)
            for row in found:
                print(line_of(row, rates), flush=True)
            rows += found
    if arguments.json:
        copies = {str(ranks): rate for ranks, rate in rates.items()}
        arguments.json.write_text(json.dumps({"rows": rows, "copy_rates": copies}, indent=1))


if __name__ == "__main__":
    main()
