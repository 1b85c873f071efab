"""Every gate of the standard libraries has the matrix of Qiskit's gate of that name."""

from __future__ import annotations

from typing import Any

import numpy as np
import pytest

from support.qasm_programs import HEADER, HEADER2, assert_same_up_to_phase, matrix_of, qasm
from support.qiskit_circuits import circuit, library, quantum_info

A, B, C, D = 0.3, -1.1, 2.5, 0.7
STDGATES: dict[str, Any] = {
    **{"x": library.XGate(), "y": library.YGate(), "z": library.ZGate(), "h": library.HGate()},
    **{"s": library.SGate(), "sdg": library.SdgGate(), "t": library.TGate()},
    **{"tdg": library.TdgGate(), "sx": library.SXGate(), "id": library.IGate()},
    **{"rx": library.RXGate(A), "ry": library.RYGate(A), "rz": library.RZGate(A)},
    **{"p": library.PhaseGate(A), "phase": library.PhaseGate(A), "u1": library.PhaseGate(A)},
    **{"cx": library.CXGate(), "CX": library.CXGate(), "cy": library.CYGate()},
    **{"cz": library.CZGate(), "ch": library.CHGate(), "cp": library.CPhaseGate(A)},
    **{"cphase": library.CPhaseGate(A), "crx": library.CRXGate(A), "cry": library.CRYGate(A)},
    **{"crz": library.CRZGate(A), "swap": library.SwapGate(), "ccx": library.CCXGate()},
    **{"cswap": library.CSwapGate(), "cu": library.CUGate(A, B, C, D)},
}
QELIB1: dict[str, Any] = {
    **{name: gate for name, gate in STDGATES.items() if name not in ("phase", "cphase")},
    **{"u2": library.U2Gate(A, B), "u3": library.U3Gate(A, B, C), "u": library.UGate(A, B, C)},
    **{"U": library.UGate(A, B, C), "u0": library.IGate(), "sxdg": library.SXdgGate()},
    **{"csx": library.CSXGate(), "cu1": library.CU1Gate(A), "cu3": library.CU3Gate(A, B, C)},
    **{"rzz": library.RZZGate(A), "rxx": library.RXXGate(A), "rccx": library.RCCXGate()},
    **{"rc3x": library.RC3XGate(), "c3x": library.C3XGate(), "c3sqrtx": library.C3SXGate()},
    "c4x": library.C4XGate(),
}


def call(name: str, gate: Any) -> str:
    angles = [1] if name == "u0" else [float(angle) for angle in gate.params]
    listed = f"({', '.join(map(str, angles))})" if angles else ""
    return f"{name}{listed} {', '.join(f'q[{k}]' for k in range(gate.num_qubits))};"


@pytest.mark.parametrize("name", STDGATES)
def test_a_gate_of_stdgates_is_exact(name: str) -> None:
    gate = STDGATES[name]
    text = f"{HEADER}qubit[{gate.num_qubits}] q; {call(name, gate)}"
    assert_same_up_to_phase(matrix_of(text), gate.to_matrix())


@pytest.mark.parametrize("name", STDGATES)
def test_a_control_keeps_the_phase_of_a_gate_of_stdgates(name: str) -> None:
    gate = STDGATES[name]
    operands = ", ".join(f"q[{k}]" for k in range(gate.num_qubits + 1))
    text = f"{HEADER}qubit[{gate.num_qubits + 1}] q; ctrl @ {call(name, gate).split(' q[')[0]}"
    whole = circuit.QuantumCircuit(gate.num_qubits + 1)
    whole.append(gate.control(1, annotated=True), range(gate.num_qubits + 1))
    actual = matrix_of(f"{text} {operands};")
    np.testing.assert_allclose(actual, quantum_info.Operator(whole).data, rtol=0, atol=1e-12)


@pytest.mark.parametrize("name", QELIB1)
def test_a_gate_of_qelib1_is_exact(name: str) -> None:
    gate = QELIB1[name]
    text = f"{HEADER2}qreg q[{gate.num_qubits}]; {call(name, gate)}"
    expected = quantum_info.Operator(gate).data
    assert_same_up_to_phase(matrix_of(text), expected)


@pytest.mark.parametrize(
    ("name", "phase"),
    [("U(0.3, -1.1, 2.5)", 0.15), ("u3(0.3, -1.1, 2.5)", -0.7), ("u2(-1.1, 2.5)", -0.7)],
)
def test_u_u2_and_u3_have_the_phases_of_the_language(name: str, phase: float) -> None:
    # Relative to the matrix whose upper left element is real: theta / 2 for the built-in gate, and
    # -(phi + lambda) / 2 for the gates of the library.
    theta = np.pi / 2 if name.startswith("u2") else A
    expected = np.exp(1j * phase) * library.UGate(theta, B, C).to_matrix()
    actual = matrix_of(f"{HEADER}qubit[2] q; ctrl @ {name} q[0], q[1];")
    np.testing.assert_allclose(actual[1::2, 1::2], expected, rtol=0, atol=1e-12)


@pytest.mark.parametrize("name", STDGATES)
def test_the_standard_gates_are_missing_without_the_library(name: str) -> None:
    gate = STDGATES[name]
    with pytest.raises(qasm.QasmError, match="is not defined"):
        qasm.loads(f"qubit[{gate.num_qubits}] q; {call(name, gate)}")
