"""Times the reading of OpenQASM 2 and 3.

Each text is a random program of gates on 20 qubits. Before a reader is timed, the program is
checked: on a small register its state must be that of Qiskit's simulation, and the long texts of
both versions must give equal records.

    python bench/doors/qasm.py --gates 100000
"""

import argparse
import random
import sys
from functools import partial
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[1]))

import numpy as np
import qiskit.qasm2
from harness import WrongResultError, argument_parser, at_least, best_seconds, run, timed
from nimbrel import DenseSimulator, qasm
from qiskit.quantum_info import Statevector
from report import Figure, Report

WIDTH = 20
SMALL = 6
SEED = 20
GOAL_SECONDS = 3.0
"""Most seconds for 100,000 gates of OpenQASM 2."""
HEADS = {
    "OpenQASM 2": 'OPENQASM 2.0;\ninclude "qelib1.inc";\nqreg q[{n}];\n',
    "OpenQASM 3": 'OPENQASM 3.0;\ninclude "stdgates.inc";\nqubit[{n}] q;\n',
}
SLOWEST_GATES = 2_000
"""Gates of the text that is read by the parser alone."""


def body(num_gates: int, num_qubits: int) -> str:
    """Random gates: 40 % without an angle, 30 % rotations and 30 % CNOTs."""
    rng = random.Random(SEED)
    lines = []
    for _ in range(num_gates):
        kind = rng.random()
        a, b = rng.sample(range(num_qubits), 2)
        if kind < 0.4:
            lines.append(f"{rng.choice(['h', 'x', 'y', 'z', 's', 'sdg', 't', 'tdg'])} q[{a}];")
        elif kind < 0.7:
            lines.append(f"{rng.choice(['rx', 'ry', 'rz'])}({rng.uniform(-3, 3):.12f}) q[{a}];")
        else:
            lines.append(f"cx q[{a}], q[{b}];")
    return "\n".join(lines) + "\n"


def check(num_gates: int) -> None:
    """Compare what is read with Qiskit's simulation, and both versions with each other."""
    small = {name: head.format(n=SMALL) + body(500, SMALL) for name, head in HEADS.items()}
    expected = Statevector(qiskit.qasm2.loads(small["OpenQASM 2"])).data
    for name, text in small.items():
        with DenseSimulator() as sim:
            sim.run(qasm.loads(text).program)
            if abs(abs(np.vdot(sim.state(), expected)) - 1) > 1e-9:
                raise WrongResultError(f"{name}: the state is not that of Qiskit")
    whole = [qasm.loads(head.format(n=WIDTH) + body(num_gates, WIDTH)) for head in HEADS.values()]
    if len(whole[0].program) != num_gates + 1 or (whole[0].program != whole[1].program).any():
        raise WrongResultError("both versions of one program give different records")


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Check and time all readers."""
    check(arguments.gates)
    texts = {name: head.format(n=WIDTH) + body(arguments.gates, WIDTH)
             for name, head in HEADS.items()}  # fmt: skip
    # A line break in each statement keeps the lines from being read without the parser.
    broken = HEADS["OpenQASM 3"].format(n=WIDTH) + body(SLOWEST_GATES, WIDTH).replace(" q", "\nq")
    gates: int = arguments.gates
    sizes = {**dict.fromkeys(texts, gates), "OpenQASM 3, parser": SLOWEST_GATES}
    texts["OpenQASM 3, parser"] = broken
    timers = [timed(partial(qasm.loads, text)) for text in texts.values()]
    figures = []
    for name, seconds in zip(texts, best_seconds(timers, arguments.repeats), strict=True):
        goal = GOAL_SECONDS * gates / 100_000 if name == "OpenQASM 2" else None
        figures.append(Figure(f"{name}, {sizes[name]:,} gates", seconds, "s", at_most=goal))
        figures.append(Figure(f"{name}, a gate", 1e6 * seconds / sizes[name], "us"))
    report.add_figures("reading, best of all rounds", figures)


def main() -> int:
    """Run the benchmark."""
    parser = argument_parser(__doc__, repeats=3)
    parser.add_argument("--gates", type=at_least(1), default=100_000, help="gates of each text")
    return run(benchmark, parser.parse_args())


if __name__ == "__main__":
    sys.exit(main())
