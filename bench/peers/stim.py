"""Stim's tableau simulator.

The time is that of making a simulator, of running a circuit that was parsed beforehand, and of
fetching the record of the outcomes.
"""

import importlib
from collections.abc import Sequence
from typing import Any

from gates import Circuit

from peers import CliffordProgram

stim: Any = importlib.import_module("stim")

_NAMES = {"S_INV": "S_DAG", "CNOT": "CX", "MEASURE": "M"}


class Clifford(CliffordProgram):
    """One circuit with its measurement, and without."""

    def __init__(self, circuit: Circuit) -> None:
        self._num_qubits = circuit.num_qubits
        self._gates = stim.Circuit()
        for name, qubits, _ in circuit.gates:
            self._gates.append(_NAMES.get(name, name), qubits)
        self._whole = self._gates.copy()
        self._whole.append("M", circuit.measured)

    def state(self) -> list[str]:
        tableau = self._after_gates().current_inverse_tableau().inverse()
        return [str(tableau.z_output(qubit)) for qubit in range(self._num_qubits)]

    def run(self) -> list[bool]:
        simulator = stim.TableauSimulator()
        simulator.do(self._whole)
        record: list[bool] = simulator.current_measurement_record()
        return record

    def outcomes(self) -> list[int]:
        return [int(bit) for bit in self.run()]

    def allows(self, outcomes: Sequence[int]) -> bool:
        """Whether projecting on these outcomes, one after the other, leaves a state."""
        simulator = self._after_gates()
        try:
            for qubit, bit in enumerate(outcomes):
                simulator.postselect_z(qubit, desired_value=bool(bit))
        except ValueError:
            return False
        return True

    def _after_gates(self) -> Any:
        simulator = stim.TableauSimulator()
        simulator.set_num_qubits(self._num_qubits)
        simulator.do(self._gates)
        return simulator
