"""Mid-circuit measurements: both methods against PennyLane's own device."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy as np
import pytest

pytest.importorskip("pennylane")

from support.pennylane_circuits import nimbrel_device, qml, reference_device

SHOTS = 20_000
SEED = 4242


def teleportation() -> Any:
    qml.Rot(0.4, 1.1, -0.3, wires=0)
    qml.Hadamard(1)
    qml.CNOT([1, 2])
    qml.CNOT([0, 1])
    qml.Hadamard(0)
    first, second = qml.measure(0), qml.measure(1)
    qml.cond(second, qml.X)(2)
    qml.cond(first, qml.Z)(2)
    return qml.expval(qml.Y(2))


def reused_wire() -> Any:
    total = 0
    for angle in (0.3, 1.2, 2.0):
        qml.RX(angle, 0)
        total = total + qml.measure(0, reset=True)
    qml.cond(total == 2, qml.RY)(0.9, wires=1)
    return qml.expval(qml.X(1))


def else_branch() -> Any:
    qml.RY(1.0, 0)
    found = qml.measure(0)
    qml.cond(found, qml.RX, qml.RZ)(0.7, wires=1)
    qml.cond(~found, qml.Hadamard)(1)
    return qml.expval(qml.Z(1))


def controlled_in_a_branch() -> Any:
    qml.Hadamard(0)
    qml.Hadamard(1)
    found = qml.measure(0)
    qml.cond(found, qml.CRX)(0.8, wires=[1, 2])
    qml.cond(found, qml.QFT)(wires=[1, 2])
    return qml.expval(qml.Z(2) @ qml.X(1))


def postselected() -> Any:
    qml.RY(0.8, 0)
    qml.CNOT([0, 1])
    qml.RX(0.5, 1)
    qml.measure(0, postselect=1)
    return qml.expval(qml.Y(1))


CIRCUITS: dict[str, Callable[[], Any]] = {
    "teleportation": teleportation,
    "reused wire": reused_wire,
    "else branch": else_branch,
    "decomposed in a branch": controlled_in_a_branch,
    "postselection": postselected,
}
METHODS = ["deferred", "tree-traversal"]


def exact_reference(circuit: Callable[[], Any]) -> Any:
    return qml.QNode(circuit, reference_device())()


@pytest.mark.parametrize("method", METHODS)
@pytest.mark.parametrize("name", CIRCUITS)
def test_exact_results(name: str, method: str) -> None:
    circuit = CIRCUITS[name]
    value = qml.QNode(circuit, nimbrel_device(), mcm_method=method)()
    np.testing.assert_allclose(value, exact_reference(circuit), rtol=0, atol=1e-12)


@pytest.mark.parametrize("method", [*METHODS, None, "device"])
@pytest.mark.parametrize("name", CIRCUITS)
def test_results_from_shots(name: str, method: str | None) -> None:
    circuit = CIRCUITS[name]
    node = qml.QNode(circuit, nimbrel_device(seed=SEED), mcm_method=method)
    value = qml.set_shots(node, shots=SHOTS)()
    shots = SHOTS if name != "postselection" else SHOTS * np.sin(0.4) ** 2
    assert abs(value - exact_reference(circuit)) <= 5 / np.sqrt(shots)


def outcome_circuit(measure: Callable[[Any, Any], Any]) -> Callable[[], Any]:
    def circuit() -> Any:
        qml.RY(1.2, 0)
        first = qml.measure(0, reset=True)
        qml.CRY(0.4, [0, 1])
        qml.cond(first, qml.RY)(2.1, wires=1)
        second = qml.measure(1)
        return measure(first, second)

    return circuit


OUTCOMES: dict[str, Callable[[Any, Any], Any]] = {
    "mean of one": lambda first, _: qml.expval(first),
    "mean of a sum": lambda first, second: qml.expval(3 * first - second),
    "variance": lambda first, second: qml.var(first + second),
    "probabilities of one": lambda _, second: qml.probs(op=second),
    "probabilities of both": lambda first, second: qml.probs(op=[second, first]),
}


@pytest.mark.parametrize("name", OUTCOMES)
def test_exact_statistics_of_outcomes(name: str) -> None:
    circuit = outcome_circuit(OUTCOMES[name])
    value = qml.QNode(circuit, nimbrel_device(), mcm_method="tree-traversal")()
    reference = qml.QNode(circuit, reference_device(), mcm_method="deferred")()
    np.testing.assert_allclose(value, reference, rtol=0, atol=1e-12)


@pytest.mark.parametrize("name", OUTCOMES)
def test_statistics_of_outcomes_from_shots(name: str) -> None:
    circuit = outcome_circuit(OUTCOMES[name])
    node = qml.QNode(circuit, nimbrel_device(seed=SEED))
    value = qml.set_shots(node, shots=SHOTS)()
    np.testing.assert_allclose(value, exact_reference(circuit), rtol=0, atol=5 * 3 / np.sqrt(SHOTS))


def test_counts_of_outcomes_are_within_five_sigma() -> None:
    circuit = outcome_circuit(lambda first, second: qml.counts([first, second]))
    node = qml.QNode(circuit, nimbrel_device(seed=SEED))
    counts = qml.set_shots(node, shots=SHOTS)()
    probabilities = exact_reference(
        outcome_circuit(lambda first, second: qml.probs(op=[first, second]))
    )
    assert sum(counts.values()) == SHOTS
    for key, probability in zip(("00", "01", "10", "11"), probabilities, strict=True):
        sigma = np.sqrt(SHOTS * probability * (1 - probability))
        assert abs(counts.get(key, 0) - SHOTS * probability) <= 5 * sigma + 1e-9


def test_samples_of_outcomes_fit_the_final_state() -> None:
    def circuit() -> Any:
        qml.Hadamard(0)
        found = qml.measure(0)
        qml.cond(found, qml.X)(1)
        return qml.sample(found), qml.sample(wires=[0, 1])

    found, bits = qml.set_shots(qml.QNode(circuit, nimbrel_device(2, seed=SEED)), shots=500)()
    np.testing.assert_array_equal(bits, np.stack([found, found], axis=1))
    assert 0 < found.sum() < 500
    # Shots of one outcome do not come in one piece.
    assert 100 < np.count_nonzero(found[1:] != found[:-1]) < 400


@pytest.mark.parametrize("all_outcomes", [False, True])
@pytest.mark.parametrize("several", [False, True])
def test_counts_have_the_keys_of_the_reference(several: bool, all_outcomes: bool) -> None:
    def circuit() -> Any:
        qml.X(0)
        first, second = qml.measure(0), qml.measure(1)
        return qml.counts([first, second] if several else first, all_outcomes=all_outcomes)

    def counts(device: Any) -> Any:
        return qml.set_shots(qml.QNode(circuit, device, mcm_method="tree-traversal"), shots=20)()

    assert counts(nimbrel_device(2)) == counts(reference_device(2))


def test_postselection_drops_shots() -> None:
    def circuit() -> Any:
        qml.RY(0.9, 0)
        qml.measure(0, postselect=1)
        return qml.sample(wires=0)

    for method in METHODS:
        node = qml.QNode(circuit, nimbrel_device(seed=SEED), mcm_method=method)
        samples = qml.set_shots(node, shots=SHOTS)()
        kept = np.sin(0.45) ** 2
        assert (samples == 1).all()
        assert abs(len(samples) - SHOTS * kept) <= 5 * np.sqrt(SHOTS * kept * (1 - kept))


def test_postselection_that_fills_all_shots() -> None:
    def circuit() -> Any:
        qml.RY(0.9, 0)
        qml.CNOT([0, 1])
        qml.measure(0, postselect=1)
        return qml.sample(wires=1)

    node = qml.QNode(circuit, nimbrel_device(2), postselect_mode="fill-shots")
    samples = qml.set_shots(node, shots=100)()
    assert (samples == 1).all()
    assert len(samples) == 100


def test_an_impossible_postselection_gives_no_number() -> None:
    def circuit() -> Any:
        qml.measure(0, postselect=1)
        return qml.expval(qml.Z(0)), qml.probs(wires=0)

    for method in METHODS:
        value, probabilities = qml.QNode(circuit, nimbrel_device(), mcm_method=method)()
        assert np.isnan(value)
        assert np.isnan(probabilities).all()


def test_divided_shots_lose_their_own() -> None:
    def circuit() -> Any:
        qml.Hadamard(0)
        qml.measure(0, postselect=0)
        return qml.sample(wires=0)

    node = qml.QNode(circuit, nimbrel_device(1, seed=SEED))
    parts = qml.set_shots(node, shots=(400, 400))()
    assert all(120 < len(part) < 280 for part in parts)


def test_many_measurements_cost_a_run_a_shot_at_most() -> None:
    def circuit() -> Any:
        for _ in range(60):
            qml.Hadamard(0)
            qml.measure(0, reset=True)
        last = qml.measure(0)
        return qml.counts(last)

    assert qml.set_shots(qml.QNode(circuit, nimbrel_device(1)), shots=8)() == {0.0: 8}


def test_gradients_through_measurements() -> None:
    def circuit(angle: Any) -> Any:
        qml.RY(angle, 0)
        found = qml.measure(0)
        qml.cond(found, qml.RX)(2 * angle, wires=1)
        return qml.expval(qml.Z(1))

    angle = qml.numpy.array(0.7, requires_grad=True)
    expected = qml.grad(qml.QNode(circuit, reference_device(), diff_method="backprop"))(angle)
    for method in METHODS:
        node = qml.QNode(
            circuit, nimbrel_device(), diff_method="parameter-shift", mcm_method=method
        )
        # PennyLane takes a conditional operation's derivative by finite differences.
        np.testing.assert_allclose(qml.grad(node)(angle), expected, rtol=0, atol=1e-7)
