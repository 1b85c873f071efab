"""Compare the PennyLane device nimbrel.qubit with PennyLane's own devices.

    python bench/doors/pennylane_device.py [--qubits N,N,...] [--repeats N] [--json PATH]

Tasks, each from the user's Python line to the result:

    value      the energy of a chain of spins in a layered circuit
    gradient   the energy and its derivatives by all angles, by the adjoint method
    shots      1,000 shots in the computational basis
    feedback   1,000 shots of a circuit with four measurements in its middle

Goal: at most 1.00 of the time of lightning.qubit for all tasks that it has the method for.

Before a task is timed, values and gradients must agree to 1e-10, and the means of shots within five
standard errors.
"""

import argparse
import importlib
import sys
from collections.abc import Callable
from functools import partial
from pathlib import Path
from typing import Any

import numpy as np

sys.path.insert(0, str(Path(__file__).parents[1]))

from harness import WrongResultError, argument_parser, best_seconds, run, timed, widths
from report import ENGINE, Comparison, Report

qml: Any = importlib.import_module("pennylane")

DEVICES = {ENGINE: "nimbrel.qubit", "lightning": "lightning.qubit", "default": "default.qubit"}
GOALS = {"lightning": 1.0}
LAYERS = 3
SHOTS = 1000
SEED = 20240607
TOLERANCE = 1e-10
MOST_DEFAULT_QUBITS = (12, 4)  # beyond this, default.qubit takes seconds a call; with feedback
MOST_FEEDBACK_QUBITS = 12  # beyond this, lightning.qubit takes minutes a call
MEASUREMENTS = 4


def layers(angles: Any, num_qubits: int) -> None:
    """Rotations of all qubits and a chain of CNOTs, in layers."""
    for layer in range(LAYERS):
        for wire in range(num_qubits):
            qml.RY(angles[layer, wire, 0], wire)
            qml.RZ(angles[layer, wire, 1], wire)
        for wire in range(num_qubits - 1):
            qml.CNOT([wire, wire + 1])


def energy_node(device: str, num_qubits: int, method: str | None) -> Any:
    """The energy of the transverse-field Ising chain as a function of the angles."""
    bonds = [0.5 * qml.Z(wire) @ qml.Z(wire + 1) for wire in range(num_qubits - 1)]
    hamiltonian = qml.sum(*bonds, *(0.3 * qml.X(wire) for wire in range(num_qubits)))

    def energy(angles: Any) -> Any:
        layers(angles, num_qubits)
        return qml.expval(hamiltonian)

    return qml.QNode(energy, qml.device(device, wires=num_qubits), diff_method=method)


def shots_node(device: str, num_qubits: int) -> Any:
    """The mean of Z of the first wire from shots of all wires."""

    def draw(angles: Any) -> Any:
        layers(angles, num_qubits)
        return qml.sample()

    node = qml.QNode(draw, qml.device(device, wires=num_qubits, seed=SEED), diff_method=None)
    return qml.set_shots(node, shots=SHOTS)


def feedback_node(device: str, num_qubits: int) -> Any:
    """Shots of a circuit that measures one wire again and again and acts on the others."""

    def draw(angles: Any) -> Any:
        layers(angles, num_qubits)
        for place in range(MEASUREMENTS):
            found = qml.measure(0, reset=True)
            qml.cond(found, qml.RX)(0.5, wires=1)
            qml.CRY(0.9 + place, [1, 0])
        return qml.sample()

    node = qml.QNode(draw, qml.device(device, wires=num_qubits, seed=SEED), diff_method=None)
    return qml.set_shots(node, shots=SHOTS)


def calls_of(task: str, num_qubits: int) -> dict[str, Callable[[], Any]]:
    """One call of the task for each device."""
    shape = (LAYERS, num_qubits, 2)
    trainable = task == "gradient"
    angles = qml.numpy.array(
        np.random.default_rng(SEED).uniform(0, 6, shape), requires_grad=trainable
    )
    most = MOST_DEFAULT_QUBITS[task == "feedback"]
    known = [name for name in DEVICES if name != "default" or num_qubits <= most]
    if task == "gradient":
        nodes = {name: energy_node(DEVICES[name], num_qubits, "adjoint") for name in known}
        return {name: partial(qml.grad(node), angles) for name, node in nodes.items()}
    makers: dict[str, Callable[[str, int], Any]] = {
        "value": lambda device, wires: energy_node(device, wires, None),
        "shots": shots_node,
        "feedback": feedback_node,
    }
    return {name: partial(makers[task](DEVICES[name], num_qubits), angles) for name in known}


def check(task: str, calls: dict[str, Callable[[], Any]]) -> None:
    """Compare the results of all devices with those of the last.

    Raises:
        WrongResultError: If they differ.
    """
    results = {name: np.asarray(call()) for name, call in calls.items()}
    *others, last = results
    for name in others:
        if task in ("shots", "feedback"):
            means = [results[each].mean(axis=0) for each in (name, last)]
            difference, bound = np.abs(means[0] - means[1]).max(), 5 * np.sqrt(0.5 / SHOTS)
        else:
            difference, bound = np.abs(results[name] - results[last]).max(), TOLERANCE
        if not difference <= bound:
            raise WrongResultError(f"{task}: {name} and {last} differ by {difference:g}")


def benchmark(arguments: argparse.Namespace, report: Report) -> None:
    """Time all tasks, all devices in turn."""
    for num_qubits in arguments.qubits:
        for task in ("value", "gradient", "shots", "feedback"):
            if task == "feedback" and num_qubits > MOST_FEEDBACK_QUBITS:
                continue
            calls = calls_of(task, num_qubits)
            check(task, calls)
            seconds = best_seconds([timed(call) for call in calls.values()], arguments.repeats)
            found = dict(zip(calls, seconds, strict=True))
            comparison = Comparison(task, num_qubits, found, goals=GOALS)
            report.add_comparisons(f"{task} on {num_qubits} qubits", [comparison])


if __name__ == "__main__":
    parser = argument_parser(__doc__, repeats=7)
    parser.add_argument("--qubits", type=partial(widths, 2, 22), default=[4, 12, 18])
    sys.exit(run(benchmark, parser.parse_args()))
