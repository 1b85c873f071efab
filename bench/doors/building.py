"""Time to write a program of 100,000 gates from Python, beside Qulacs and Qiskit.

Each contender writes the same gates. The states of short circuits are compared before anything is
timed. The figures are microseconds a gate, the best of several rounds in turn, in processor time:
all contenders use one thread.
"""

import argparse
import importlib
import sys
import time
from collections.abc import Callable
from typing import Any, TypeAlias

import nimbrel as nb
import numpy as np
import numpy.typing as npt

GATES = 100_000
QUBITS = 20
SHORT = (200, 4)  # gates and qubits of the circuits whose states are compared

Build: TypeAlias = Callable[["Gates"], object]
State: TypeAlias = npt.NDArray[np.complex128]


class Gates:
    """The operands of all gates, as a front end holds them."""

    def __init__(self, count: int, num_qubits: int) -> None:
        rng = np.random.default_rng(7)
        self.num_qubits = num_qubits
        self.targets = rng.integers(0, num_qubits, count)
        self.controls = (self.targets + rng.integers(1, num_qubits, count)) % num_qubits
        self.angles = rng.uniform(-180, 180, count)
        self.lists = self.targets.tolist(), self.controls.tolist(), self.angles.tolist()
        self.pairs = list(zip(self.lists[1], self.lists[0], strict=True))
        self.radians = np.deg2rad(self.angles).tolist()


def nimbrel_tasks() -> dict[str, dict[str, Build]]:
    """Each task by single builders, and by arrays."""

    def mixed(g: Gates) -> nb.Program:
        parts = []
        for target, control, angle in zip(*g.lists, strict=True):
            parts += [nb.h(target), nb.x(target, controls=control), nb.rz(angle, target)]
        return nb.program(*parts)

    return {
        "h": {
            "nimbrel": lambda g: nb.program(*[nb.h(target) for target in g.lists[0]]),
            "nimbrel each": lambda g: nb.h.each(g.targets),
        },
        "cnot": {
            "nimbrel": lambda g: nb.program(*[nb.x(t, controls=c) for c, t in g.pairs]),
            "nimbrel each": lambda g: nb.x.each(g.targets, controls=g.controls),
        },
        "rx": {
            "nimbrel": lambda g: nb.program(
                *[nb.rx(angle, target) for target, _, angle in zip(*g.lists, strict=True)]
            ),
            "nimbrel each": lambda g: nb.rx.each(g.angles, g.targets),
        },
        "h, cnot, rz": {"nimbrel": mixed},
    }


def qulacs_tasks() -> dict[str, Build]:
    """The tasks for Qulacs."""
    QuantumCircuit = importlib.import_module("qulacs").QuantumCircuit  # noqa: N806

    def h(g: Gates) -> object:
        circuit = QuantumCircuit(g.num_qubits)
        for target in g.lists[0]:
            circuit.add_H_gate(target)
        return circuit

    def cnot(g: Gates) -> object:
        circuit = QuantumCircuit(g.num_qubits)
        for control, target in g.pairs:
            circuit.add_CNOT_gate(control, target)
        return circuit

    def rx(g: Gates) -> object:
        circuit = QuantumCircuit(g.num_qubits)
        for target, angle in zip(g.lists[0], g.radians, strict=True):
            circuit.add_RX_gate(target, -angle)
        return circuit

    def mixed(g: Gates) -> object:
        circuit = QuantumCircuit(g.num_qubits)
        for (control, target), angle in zip(g.pairs, g.radians, strict=True):
            circuit.add_H_gate(target)
            circuit.add_CNOT_gate(control, target)
            circuit.add_RZ_gate(target, -angle)
        return circuit

    return {"h": h, "cnot": cnot, "rx": rx, "h, cnot, rz": mixed}


def qiskit_tasks() -> dict[str, Build]:
    """The tasks for Qiskit."""
    from qiskit import QuantumCircuit  # type: ignore[import-untyped,unused-ignore]

    def h(g: Gates) -> object:
        circuit = QuantumCircuit(g.num_qubits)
        for target in g.lists[0]:
            circuit.h(target)
        return circuit

    def cnot(g: Gates) -> object:
        circuit = QuantumCircuit(g.num_qubits)
        for control, target in g.pairs:
            circuit.cx(control, target)
        return circuit

    def rx(g: Gates) -> object:
        circuit = QuantumCircuit(g.num_qubits)
        for target, angle in zip(g.lists[0], g.radians, strict=True):
            circuit.rx(angle, target)
        return circuit

    def mixed(g: Gates) -> object:
        circuit = QuantumCircuit(g.num_qubits)
        for (control, target), angle in zip(g.pairs, g.radians, strict=True):
            circuit.h(target)
            circuit.cx(control, target)
            circuit.rz(angle, target)
        return circuit

    return {"h": h, "cnot": cnot, "rx": rx, "h, cnot, rz": mixed}


def state_of(built: Any, num_qubits: int) -> State:
    """The state that a built circuit makes from all zeros."""
    if isinstance(built, nb.Program):
        with nb.Simulator("StreamQPU") as simulator:
            simulator.run(nb.reset(num_qubits), built)
            return simulator.state()
    if type(built).__module__.startswith("qulacs"):
        state = importlib.import_module("qulacs").QuantumState(num_qubits)
        built.update_quantum_state(state)
        return np.asarray(state.get_vector())
    from qiskit.quantum_info import (  # type: ignore[import-untyped,unused-ignore]
        Statevector,
    )

    return np.asarray(Statevector(built))


def check(tasks: dict[str, dict[str, Build]]) -> None:
    """Leave with an error unless all contenders make the same states."""
    gates = Gates(*SHORT)
    for task, contenders in tasks.items():
        built = {name: build(gates) for name, build in contenders.items()}
        states = {name: state_of(each, gates.num_qubits) for name, each in built.items()}
        expected = states["nimbrel"]
        for name, state in states.items():
            if abs(abs(np.vdot(expected, state)) - 1) > 1e-9:
                sys.exit(f"error: {name} makes another state for {task}")


def measure(tasks: dict[str, dict[str, Build]], rounds: int) -> None:
    """Print the table."""
    names = list(dict.fromkeys(name for contenders in tasks.values() for name in contenders))
    print(f"{'microseconds a gate':20}" + "".join(f"{name:>14}" for name in names))
    for task, contenders in tasks.items():
        per_row = 3 if "," in task else 1
        gates = Gates(GATES // per_row, QUBITS)
        best = dict.fromkeys(contenders, float("inf"))
        for _ in range(rounds):
            for name, build in contenders.items():
                start = time.process_time()
                built = build(gates)
                best[name] = min(best[name], time.process_time() - start)
                del built
        cells = [f"{best[n] / GATES * 1e6:14.3f}" if n in best else f"{'-':>14}" for n in names]
        print(f"{task:20}" + "".join(cells))


def main() -> None:
    """Check and measure."""
    parser = argparse.ArgumentParser(description=(__doc__ or "").partition("\n")[0])
    parser.add_argument("--rounds", type=int, default=5)
    rounds: int = parser.parse_args().rounds
    tasks = nimbrel_tasks()
    for name, make in (("Qulacs", qulacs_tasks), ("Qiskit", qiskit_tasks)):
        try:
            made = make()
        except ImportError:
            print(f"{name} is not installed and is left out")
            continue
        for task, build in made.items():
            tasks[task][name] = build
    check(tasks)
    measure(tasks, rounds)


if __name__ == "__main__":
    main()
