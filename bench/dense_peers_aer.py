"""Qiskit Aer in the dense benchmark: circuits, since it has no call for a single gate."""

import importlib
import math
from collections.abc import Sequence
from typing import Any

import numpy as np
from dense_model import Amplitudes, pauli_rotation
from dense_simulator import Simulator, Timer
from dense_tasks import Gate

qiskit: Any = importlib.import_module("qiskit")
qiskit_aer: Any = importlib.import_module("qiskit_aer")
importlib.import_module("qiskit_aer.library")  # gives circuits the instructions on states


class Aer(Simulator):
    """Aer's state-vector method without fusion.

    A timed circuit repeats the gates, and the time is the one that Aer's own clock gives for
    running it, less that of the same circuit without gates: the making and the conversion of
    circuits in Python are left out. It starts with all qubits 0, because Aer treats every
    amplitude alike and loading a state would take longer than the gates.
    """

    name = "aer"
    max_gates = 2000

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        self._num_qubits = num_qubits
        self._start: Amplitudes | None = None
        self._found: Amplitudes | None = None
        self._backend = qiskit_aer.AerSimulator(
            method="statevector",
            fusion_enable=False,
            enable_truncation=False,  # or it would drop the gates that no result depends on
            max_parallel_threads=threads or 0,
        )

    def load(self, state: Amplitudes) -> None:
        """Keep a state for the next circuit."""
        self._start = state

    def state(self) -> Amplitudes:
        """The state after the last gates that were applied."""
        if self._found is None:
            raise RuntimeError("no circuit has run")
        return self._found

    def apply(self, gates: Sequence[Gate]) -> None:
        """Run gates on the state loaded."""
        circuit = qiskit.QuantumCircuit(self._num_qubits, 1)
        circuit.set_statevector(self._start)
        _append(circuit, gates)
        circuit.save_statevector()
        self._found = np.asarray(self._run(circuit).get_statevector(), dtype=np.complex128)

    def timer(self, gates: Sequence[Gate]) -> Timer:
        """Time circuits net of the empty one."""
        empty = self._seconds(self._circuit([], 0))

        def run(repetitions: int) -> float:
            nonlocal empty
            empty = min(empty, self._seconds(self._circuit([], 0)))
            return self._seconds(self._circuit(gates, repetitions)) - empty

        return run

    def _circuit(self, gates: Sequence[Gate], repetitions: int) -> Any:
        circuit = qiskit.QuantumCircuit(self._num_qubits, 1)
        for _ in range(repetitions):
            _append(circuit, gates)
        circuit.measure(0, 0)  # a circuit without any result is not run
        return circuit

    def _seconds(self, circuit: Any) -> float:
        return float(self._run(circuit).results[0].time_taken)

    def _run(self, circuit: Any) -> Any:
        result = self._backend.run(circuit, shots=1).result()
        if not result.success:
            raise RuntimeError(f"Aer failed: {result.status}")
        return result


def _append(circuit: Any, gates: Sequence[Gate]) -> None:
    for gate in gates:
        if gate.name == "MEASURE":
            circuit.measure(gate.qubits[0], 0)
        elif gate.name == "PAULI":
            # It has no such rotation of three qubits; one matrix is faster than nine gates.
            circuit.unitary(pauli_rotation(gate.angle, gate.paulis), list(gate.qubits))
        elif gate.name == "CNOT":
            circuit.cx(*gate.qubits)
        elif gate.angle:
            getattr(circuit, gate.name.lower())(math.radians(gate.angle), *gate.qubits)
        else:
            getattr(circuit, gate.name.lower())(*gate.qubits)
