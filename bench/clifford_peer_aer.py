"""Qiskit Aer's stabilizer method as a contestant of the Clifford benchmark."""

import importlib
from collections.abc import Sequence
from typing import Any, Final

from clifford_circuits import Circuit

qiskit: Any = importlib.import_module("qiskit")
qiskit_aer: Any = importlib.import_module("qiskit_aer")
importlib.import_module("qiskit_aer.library")  # gives circuits the instructions on states

_NAMES: Final = {"S_INV": "sdg", "CNOT": "cx"}


class Aer:
    """One circuit, made beforehand.

    The time is the one that Aer's own clock gives for running the circuit once with its
    measurement: the making and the conversion of circuits in Python are left out.
    """

    name = "aer"
    widest_rows: int | None = 200  # beyond, the rows' way into Python takes minutes

    def __init__(self, circuit: Circuit) -> None:
        """Make the circuit with its measurement, and without."""
        width = circuit.num_qubits
        self._backend = qiskit_aer.AerSimulator(method="stabilizer")
        self._gates = qiskit.QuantumCircuit(width, width)
        for name, qubits in circuit.gates:
            getattr(self._gates, _NAMES.get(name, name.lower()))(*qubits)
        self._whole = self._gates.copy()
        self._whole.measure(range(width), range(width))

    def generators(self) -> list[str]:
        """The rows that Aer saves, whose labels have qubit 0 last."""
        circuit = self._gates.copy()
        circuit.save_stabilizer(label="rows")
        table = self._run(circuit).data()["rows"].clifford
        labels: list[str] = table.to_labels(mode="S")
        return [label[0] + label[:0:-1].replace("I", "_") for label in labels]

    def outcomes(self) -> list[int]:
        """The outcomes of a run."""
        [bits] = self._run(self._whole).get_counts()
        return [int(bit) for bit in reversed(bits)]

    def allows(self, _outcomes: Sequence[int]) -> bool:
        """Not told: this method selects no outcomes."""
        return True

    def seconds(self) -> float:
        """The time of a run by Aer's clock."""
        return float(self._run(self._whole).results[0].time_taken)

    def _run(self, circuit: Any) -> Any:
        result = self._backend.run(circuit, shots=1).result()
        if not result.success:
            raise RuntimeError(f"Aer failed: {result.status}")
        return result
