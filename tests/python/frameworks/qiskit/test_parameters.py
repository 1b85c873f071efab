"""Parameters: values given at once, and one conversion for many values."""

from __future__ import annotations

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import EstimatorV2, from_circuit, to_statevector
from qiskit import QuantumCircuit
from qiskit.circuit import Parameter, ParameterVector
from qiskit.circuit.library import PauliEvolutionGate, RVGate, efficient_su2
from qiskit.quantum_info import SparsePauliOp, Statevector

A, B = Parameter("a"), Parameter("b")


def assert_states(circuit: QuantumCircuit, *values: float) -> None:
    expected = Statevector(circuit.assign_parameters(dict(zip((A, B), values, strict=True))))
    found = to_statevector(circuit, dict(zip((A, B), values, strict=True)))
    np.testing.assert_allclose(found.data, expected.data, rtol=0, atol=1e-12)


def test_values_by_parameter_by_name_and_in_order() -> None:
    circuit = QuantumCircuit(1)
    circuit.u(A, B, 0.3, 0)
    by_parameter = from_circuit(circuit, {A: 0.1, B: 0.2}).program
    assert (by_parameter == from_circuit(circuit, {"a": 0.1, "b": 0.2}).program).all()
    assert (by_parameter == from_circuit(circuit, [0.1, 0.2]).program).all()


def test_a_value_of_zero() -> None:
    circuit = QuantumCircuit(1)
    circuit.u(A, B, -B, 0)
    for values in ((0.0, 0.0), (0.3, 0.0), (0.0, 0.4)):
        assert_states(circuit, *values)


def rotations() -> dict[str, QuantumCircuit]:
    circuits = {name: QuantumCircuit(2) for name in ("linear", "product", "sine", "axis", "inner")}
    circuits["linear"].ry(2 * A - B / 3 + 0.5, 0)
    circuits["linear"].rzx(-A, 0, 1)
    circuits["linear"].cu(A, B, 0.1, A + B, 1, 0)
    circuits["product"].ry(A * B, 0)
    circuits["product"].crx(A**2, 0, 1)
    circuits["sine"].ry(A.sin() + B, 0)
    circuits["axis"].append(RVGate(A, 0.2, B), [1])
    inner = QuantumCircuit(2, name="inner")
    inner.rx(A, 0)
    inner.append(PauliEvolutionGate(SparsePauliOp(["XX", "ZZ", "YY"]), B), [0, 1])
    circuits["inner"].h(0)
    circuits["inner"].append(inner.to_gate(), [1, 0])
    for circuit in circuits.values():
        circuit.r(A, B, 0)
        circuit.append(inner.to_gate(), [0, 1])
    return circuits


CIRCUITS = rotations()


@pytest.mark.parametrize("name", CIRCUITS)
def test_one_conversion_for_many_values(name: str) -> None:
    circuit = CIRCUITS[name]
    values = np.random.default_rng(3).uniform(-3, 3, (4, 2))
    values[0] = 0.0
    found = EstimatorV2().run([(circuit, [["XZ"], ["YI"], ["ZZ"]], values)]).result()[0].data.evs
    for column, row in enumerate(values):
        bound = circuit.assign_parameters(row)
        state = to_statevector(bound)
        for line, label in enumerate(("XZ", "YI", "ZZ")):
            value = state.expectation_value(SparsePauliOp(label)).real
            assert found[line, column] == pytest.approx(value, abs=1e-12)


@pytest.mark.parametrize("step", [1e-6, 1e-8, 3e-9, 1e-10, 1e-12])
@pytest.mark.parametrize("start", [0.0, np.pi, -np.pi, 2 * np.pi])
def test_small_steps_of_a_phase(start: float, step: float) -> None:
    circuit = QuantumCircuit(2)
    circuit.h([0, 1])
    circuit.p(A, 0)
    circuit.cp(B, 0, 1)
    found = to_statevector(circuit, [start + step, start - step]).data
    turned = np.exp(1j * np.array([0.0, start + step, 0.0, 2 * start]))
    np.testing.assert_allclose(found, turned / 2, rtol=0, atol=1e-14)
    # The same by one conversion for several values; the derivative of <Y> by a is cos(a).
    circuit = QuantumCircuit(1)
    circuit.h(0)
    circuit.p(A, 0)
    evs = EstimatorV2().run([(circuit, "Y", [[start + step], [start]])]).result()[0].data.evs
    assert evs[0] - evs[1] == pytest.approx(np.sin(start + step) - np.sin(start), abs=1e-14)


def test_many_parameters_keep_their_order() -> None:
    circuit = efficient_su2(4, reps=2)
    vector = ParameterVector("x", circuit.num_parameters)
    circuit = circuit.assign_parameters([3 * entry for entry in vector[::-1]])
    values = np.linspace(-1, 1, len(vector))
    value = EstimatorV2().run([(circuit, "XYZI", values)]).result()[0].data.evs
    expected = Statevector(circuit.assign_parameters(values))
    assert value == pytest.approx(expected.expectation_value(SparsePauliOp("XYZI")).real, abs=1e-12)
