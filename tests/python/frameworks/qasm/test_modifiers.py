"""Modifiers of gates: inv, pow, ctrl and negctrl."""

from __future__ import annotations

import importlib
from typing import Any

import numpy as np
import pytest

from support.qasm_programs import HEADER, error_of, matrix_of
from support.qiskit_circuits import library

linalg: Any = importlib.import_module("scipy.linalg")

ONE_QUBIT = {
    **{"x": library.XGate(), "y": library.YGate(), "z": library.ZGate(), "h": library.HGate()},
    **{"s": library.SGate(), "tdg": library.TdgGate(), "sx": library.SXGate()},
    **{"rx(0.4)": library.RXGate(0.4), "ry(-2)": library.RYGate(-2), "rz(5)": library.RZGate(5)},
    **{"p(1.2)": library.PhaseGate(1.2), "rx(2 * pi)": library.RXGate(2 * np.pi)},
}


def body_of(call: str) -> np.ndarray:
    """The matrix of a gate on q[1], its phase included, from its controlled form."""
    return matrix_of(f"{HEADER}qubit[2] q; ctrl @ {call} q[0], q[1];")[1::2, 1::2]


def principal_power(matrix: np.ndarray, exponent: float) -> np.ndarray:
    values, vectors = np.linalg.eig(matrix)
    angles = np.angle(values)
    angles[angles < -np.pi + 1e-9] = np.pi
    return vectors @ np.diag(np.exp(1j * angles * exponent)) @ np.linalg.inv(vectors)


@pytest.mark.parametrize("gate", ONE_QUBIT)
def test_inv_is_the_inverse(gate: str) -> None:
    expected = ONE_QUBIT[gate].to_matrix().conj().T
    np.testing.assert_allclose(body_of(f"inv @ {gate}"), expected, rtol=0, atol=1e-12)


@pytest.mark.parametrize("exponent", [-3, -1, 0, 1, 2, 5, 1000])
@pytest.mark.parametrize("gate", ONE_QUBIT)
def test_an_integer_power_repeats_the_gate(gate: str, exponent: int) -> None:
    expected = np.linalg.matrix_power(ONE_QUBIT[gate].to_matrix(), exponent)
    np.testing.assert_allclose(body_of(f"pow({exponent}) @ {gate}"), expected, rtol=0, atol=1e-10)


@pytest.mark.parametrize("exponent", [0.5, -0.25, 1.75])
@pytest.mark.parametrize("gate", ONE_QUBIT)
def test_another_power_is_the_principal_one(gate: str, exponent: float) -> None:
    expected = principal_power(ONE_QUBIT[gate].to_matrix(), exponent)
    np.testing.assert_allclose(body_of(f"pow({exponent}) @ {gate}"), expected, rtol=0, atol=1e-9)


def test_a_root_of_a_swap_is_exact() -> None:
    actual = matrix_of(f"{HEADER}qubit[2] q; pow(0.5) @ swap q[0], q[1];")
    expected = principal_power(library.SwapGate().to_matrix(), 0.5)
    np.testing.assert_allclose(actual, expected, rtol=0, atol=1e-12)


def test_a_root_of_a_defined_gate_on_one_qubit_is_exact() -> None:
    defined = "gate turn(a) q { h q; rx(a) q; t q; }"
    actual = matrix_of(f"{HEADER}{defined} qubit[2] q; ctrl @ pow(0.5) @ turn(0.3) q[0], q[1];")
    whole = (
        library.TGate().to_matrix() @ library.RXGate(0.3).to_matrix() @ library.HGate().to_matrix()
    )
    np.testing.assert_allclose(actual[1::2, 1::2], principal_power(whole, 0.5), rtol=0, atol=1e-9)


def test_modifiers_act_from_the_gate_outwards_and_take_operands_from_the_left() -> None:
    text = f"{HEADER}qubit[3] q; ctrl @ inv @ negctrl @ pow(2) @ t q[2], q[0], q[1];"
    expected = np.eye(8, dtype=complex)
    for term in range(8):
        if term >> 2 & 1 and not term & 1 and term >> 1 & 1:
            expected[term, term] = -1j
    np.testing.assert_allclose(matrix_of(text), expected, rtol=0, atol=1e-12)


def test_a_phase_with_negated_controls_alone_is_exact() -> None:
    text = f"{HEADER}qubit[2] q; negctrl(2) @ gphase(0.6) q[0], q[1];"
    expected = np.diag([np.exp(0.6j), 1, 1, 1])
    np.testing.assert_allclose(matrix_of(text), expected, rtol=0, atol=1e-12)


def test_a_defined_gate_with_two_controls_is_exact() -> None:
    defined = "gate mine(a) q, r { U(a, 0.1, 0.2) q; gphase(a); cx q, r; }"
    plain = matrix_of(f"{HEADER}{defined} qubit[3] q; ctrl @ mine(0.3) q[0], q[1], q[2];")
    twice = matrix_of(f"{HEADER}{defined} qubit[4] q; ctrl(2) @ mine(0.3) q[0], q[3], q[1], q[2];")
    np.testing.assert_allclose(twice[8:, 8:], plain, rtol=0, atol=1e-12)
    np.testing.assert_allclose(twice[:8, :8], np.eye(8), rtol=0, atol=1e-12)


@pytest.mark.parametrize(
    ("call", "message"),
    [
        ("pow(0.5) @ cswap q[0], q[1], q[2];", None),
        ("ctrl(0) @ x q[0];", "<text>:4:6: a gate cannot have 0 controls"),
        ("ctrl @ x q[0];", "<text>:4:1: 'x' needs 2 qubit(s), not 1"),
        ("ctrl @ x q[0], q[0];", "<text>:4:1: a gate needs different qubits"),
        ("gphase(0.1) q[0];", "<text>:4:1: 'gphase' needs 0 qubit(s), not 1"),
        (
            "pow(0.5) @ two q[0], q[1];",
            "<text>:4:1: the power 0.5 of a gate on several qubits is no integer",
        ),
    ],
)
def test_modifiers_that_do_not_fit_are_refused(call: str, message: str | None) -> None:
    text = f"{HEADER}qubit[3] q; gate two a, b {{ h a; cx a, b; }}\n{call}"
    if message is None:
        assert matrix_of(text).shape == (8, 8)
    else:
        assert error_of(text) == message
