"""The state of a circuit, in Qiskit's form."""

from __future__ import annotations

import numpy as np
from qiskit import QuantumCircuit
from qiskit.quantum_info import Statevector

from nimbrel.dense import DenseSimulator
from nimbrel.qiskit.circuit_programs import CircuitProgram, ParameterValues, from_circuit
from nimbrel.qiskit.errors import ConversionError


def to_statevector(
    circuit: QuantumCircuit, parameters: ParameterValues | None = None
) -> Statevector:
    """The state that a circuit makes of qubits that are 0, its global phase included.

    Args:
        circuit: The circuit. It must not measure, nor reset a qubit that is not 0.
        parameters: Values of its parameters, as for `from_circuit`.

    Returns:
        The state, of 2**n amplitudes; qubit 0 is the least significant bit of an index.

    Raises:
        ConversionError: As `from_circuit`, or if the circuit measures or resets a qubit.
    """
    converted = from_circuit(circuit, parameters, clifford=False)
    refuse_random(converted)
    with DenseSimulator() as simulator:
        simulator.run(converted.program)
        state = simulator.state()
    state *= np.exp(1j * converted.global_phase)
    return Statevector(state, dims=(2,) * circuit.num_qubits)


def refuse_random(converted: CircuitProgram) -> None:
    """Refuse a circuit whose state is another one in every run.

    Raises:
        ConversionError: It names the first operation that measures or resets a qubit.
    """
    if converted.random_at is not None:
        raise ConversionError(
            "it is random, so the circuit has no one state; remove it and what depends on it",
            converted.random_at,
        )
