"""Qiskit Aer, which runs whole circuits and has no call for a single gate.

All times are those that Aer's own clock gives for running a circuit once: the making and the
conversion of circuits and results in Python are left out.
"""

import importlib
import math
from collections.abc import Sequence
from typing import Any

import numpy as np
from gates import Circuit, Gate
from harness import RepeatTimer
from numpy_models import pauli_rotation

from peers import Amplitudes, CliffordProgram, DenseRegister

qiskit: Any = importlib.import_module("qiskit")
qiskit_aer: Any = importlib.import_module("qiskit_aer")
importlib.import_module("qiskit_aer.library")  # gives circuits the instructions on states

_NAMES = {"CNOT": "cx", "S_INV": "sdg", "TOFFOLI": "ccx", "PHASE": "p", "CPHASE": "cp"}


def append(circuit: Any, gates: Sequence[Gate]) -> None:
    """Add gates to a circuit."""
    for gate in gates:
        if gate.name == "MEASURE":
            circuit.measure(gate.qubits[0], 0)
        elif gate.name == "CZ" and len(gate.qubits) > 2:
            circuit.mcp(math.pi, list(gate.qubits[:-1]), gate.qubits[-1])
        elif len(gate.paulis) > 1 and gate.name != "RZZ":
            # It has no such rotation of three qubits; one matrix is faster than nine gates.
            circuit.unitary(pauli_rotation(gate.degrees, gate.paulis), list(gate.qubits))
        else:
            getattr(circuit, _NAMES.get(gate.name, gate.name.lower()))(*gate.angles, *gate.qubits)


def result_of(backend: Any, circuit: Any) -> Any:
    """Run a circuit once."""
    result = backend.run(circuit, shots=1).result()
    if not result.success:
        raise RuntimeError(f"Aer failed: {result.status}")
    return result


class Dense(DenseRegister):
    """Aer's state-vector method without fusion.

    A timed circuit repeats the gates, and the time of the same circuit without gates is taken
    off. It starts with all qubits 0, because Aer treats every amplitude alike and loading a state
    would take longer than the gates.
    """

    fusion = False
    max_gates = 2000

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        self._num_qubits = num_qubits
        self._start: Amplitudes | None = None
        self._found: Amplitudes | None = None
        self._backend = qiskit_aer.AerSimulator(
            method="statevector",
            fusion_enable=self.fusion,
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
        circuit = qiskit.QuantumCircuit(self._num_qubits, 1)
        circuit.set_statevector(self._start)
        append(circuit, gates)
        circuit.save_statevector()
        found = result_of(self._backend, circuit).get_statevector()
        self._found = np.asarray(found, dtype=np.complex128)

    def timer(self, gates: Sequence[Gate]) -> RepeatTimer:
        empty = self._seconds([], 0)

        def run(repetitions: int) -> float:
            nonlocal empty
            empty = min(empty, self._seconds([], 0))
            return self._seconds(gates, repetitions) - empty

        return run

    def _seconds(self, gates: Sequence[Gate], repetitions: int) -> float:
        circuit = qiskit.QuantumCircuit(self._num_qubits, 1)
        for _ in range(repetitions):
            append(circuit, gates)
        circuit.measure(0, 0)  # a circuit without any result is not run
        return float(result_of(self._backend, circuit).results[0].time_taken)


class Fused(Dense):
    """The same with fusion, whose time is that of a single run of the gates.

    Repeated gates would be fused beyond the end of their list.
    """

    fusion = True
    max_gates = 1


class Clifford(CliffordProgram):
    """Aer's stabilizer method."""

    widest_state = 200  # beyond, the rows' way into Python takes minutes

    def __init__(self, circuit: Circuit) -> None:
        width = circuit.num_qubits
        self._backend = qiskit_aer.AerSimulator(method="stabilizer")
        self._gates = qiskit.QuantumCircuit(width, width)
        append(self._gates, circuit.gates)
        self._whole = self._gates.copy()
        self._whole.measure(circuit.measured, circuit.measured)

    def state(self) -> list[str]:
        """The rows that Aer saves, whose labels have qubit 0 last."""
        circuit = self._gates.copy()
        circuit.save_stabilizer(label="rows")
        table = result_of(self._backend, circuit).data()["rows"].clifford
        labels: list[str] = table.to_labels(mode="S")
        return [label[0] + label[:0:-1].replace("I", "_") for label in labels]

    def run(self) -> Any:
        return result_of(self._backend, self._whole)

    def outcomes(self) -> list[int]:
        [bits] = self.run().get_counts()
        return [int(bit) for bit in reversed(bits)]

    def seconds(self) -> float:
        return float(self.run().results[0].time_taken)
