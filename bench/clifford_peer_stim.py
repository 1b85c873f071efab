"""Stim's tableau simulator as a contestant of the Clifford benchmark."""

import importlib
from collections.abc import Sequence
from typing import Any, Final

from clifford_circuits import Circuit
from harness import seconds_of

stim: Any = importlib.import_module("stim")

_NAMES: Final = {"S_INV": "S_DAG", "CNOT": "CX"}


class Stim:
    """One circuit, parsed beforehand.

    The time is that of making a simulator, of running the circuit with its measurement, and of
    fetching the record of the outcomes.
    """

    name = "stim"
    widest_rows: int | None = None

    def __init__(self, circuit: Circuit) -> None:
        """Make the circuit with its measurement, and without."""
        self._num_qubits = circuit.num_qubits
        self._gates = stim.Circuit()
        for name, qubits in circuit.gates:
            self._gates.append(_NAMES.get(name, name), qubits)
        self._whole = self._gates.copy()
        self._whole.append("M", range(circuit.num_qubits))

    def generators(self) -> list[str]:
        """The images of Z."""
        tableau = self._after_gates().current_inverse_tableau().inverse()
        return [str(tableau.z_output(qubit)) for qubit in range(self._num_qubits)]

    def outcomes(self) -> list[int]:
        """The outcomes of a run."""
        return [int(bit) for bit in self._run()]

    def allows(self, outcomes: Sequence[int]) -> bool:
        """Whether projecting on these outcomes, one after the other, leaves a state."""
        simulator = self._after_gates()
        try:
            for qubit, bit in enumerate(outcomes):
                simulator.postselect_z(qubit, desired_value=bool(bit))
        except ValueError:
            return False
        return True

    def seconds(self) -> float:
        """The time of a run."""
        return seconds_of(self._run)

    def _after_gates(self) -> Any:
        simulator = stim.TableauSimulator()
        simulator.set_num_qubits(self._num_qubits)
        simulator.do(self._gates)
        return simulator

    def _run(self) -> list[bool]:
        simulator = stim.TableauSimulator()
        simulator.do(self._whole)
        record: list[bool] = simulator.current_measurement_record()
        return record
