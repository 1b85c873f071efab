"""Gates and programs as qiskit circuits, for comparison with the dense filter."""

from __future__ import annotations

import importlib
from collections.abc import Iterable
from typing import Any

import numpy as np
import pytest

from models import opcodes
from models.matrices import Matrix, controls, qubit_numbers
from models.wire import Record

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")
library: Any = importlib.import_module("qiskit.circuit.library")  # its types are incomplete
circuit: Any = importlib.import_module("qiskit.circuit")
quantum_info: Any = importlib.import_module("qiskit.quantum_info")
linalg: Any = importlib.import_module("scipy.linalg")  # comes with qiskit

PLAIN = {
    **dict.fromkeys((opcodes.X, opcodes.LELBOW, opcodes.RELBOW), library.XGate),
    opcodes.Y: library.YGate,
    opcodes.Z: library.ZGate,
    opcodes.H: library.HGate,
    opcodes.S: library.SGate,
    opcodes.S_INV: library.SdgGate,
    opcodes.T: library.TGate,
    opcodes.T_INV: library.TdgGate,
    opcodes.ROOTX: library.SXGate,
    opcodes.ROOTX_INV: library.SXdgGate,
    opcodes.SWAP: library.SwapGate,
}
TURNING = {
    opcodes.RX: library.RXGate,
    opcodes.RY: library.RYGate,
    opcodes.RZ: library.RZGate,
    opcodes.PHASE: library.PhaseGate,
}


def root_y(sign: int) -> Any:
    """qiskit has no root of Y: a rotation by 90 degrees with a phase for the whole state."""
    root = circuit.QuantumCircuit(1, global_phase=sign * np.pi / 4)
    root.ry(sign * np.pi / 2, 0)
    return root.to_gate()


def pauli_rotation(record: Record) -> tuple[Any, list[int]]:
    """The rotation and the qubits of its product, the lowest first."""
    qubits = qubit_numbers(record.target_mask | record.cond_mask)
    letters = {(1, 0): "X", (0, 1): "Z", (1, 1): "Y"}
    names = [letters[record.target_mask >> q & 1, record.cond_mask >> q & 1] for q in qubits]
    product = quantum_info.Pauli("".join(reversed(names))).to_matrix()
    return library.UnitaryGate(linalg.expm(-1j * np.deg2rad(record.angle) * product)), qubits


def uncontrolled(record: Record) -> list[tuple[Any, list[int]]]:
    """The gates of a record without its controls, and the qubits on which each acts."""
    low = record.opcode & 0xFFFFFFFF
    targets = qubit_numbers(record.target_mask)
    if low == opcodes.PPR:
        return [pauli_rotation(record)] if record.target_mask | record.cond_mask else []
    if low in (opcodes.ROOTY, opcodes.ROOTY_INV):
        gate = root_y(1 if low == opcodes.ROOTY else -1)
    elif low in TURNING:
        gate = TURNING[low](np.deg2rad(record.angle))
    else:
        gate = PLAIN[low]()
    return [(gate, targets)] if low == opcodes.SWAP else [(gate, [target]) for target in targets]


def controlled(record: Record) -> list[tuple[Any, list[int]]]:
    mask, zeros = controls(record)
    qubits = qubit_numbers(mask)
    if not qubits:
        return uncontrolled(record)
    wanted = sum((zeros >> qubit & 1 ^ 1) << place for place, qubit in enumerate(qubits))
    return [
        (gate.control(len(qubits), ctrl_state=wanted, annotated=True), qubits + targets)
        for gate, targets in uncontrolled(record)
    ]


def circuit_of(num_qubits: int, records: Iterable[Record]) -> Any:
    whole = circuit.QuantumCircuit(num_qubits)
    for record in records:
        for gate, qubits in controlled(record):
            whole.append(gate, qubits)
    return whole


def matrix_of(num_qubits: int, record: Record) -> Matrix:
    matrix: Matrix = quantum_info.Operator(circuit_of(num_qubits, [record])).data
    return matrix


def evolved(state: Matrix, records: Iterable[Record]) -> Matrix:
    """The state after the records."""
    num_qubits = len(state).bit_length() - 1
    vector = quantum_info.Statevector(state).evolve(circuit_of(num_qubits, records))
    result: Matrix = vector.data
    return result
