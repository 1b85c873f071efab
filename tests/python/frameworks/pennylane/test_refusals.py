"""What the device cannot do is refused by name, before anything runs."""

from __future__ import annotations

import re
import subprocess
import sys
from collections.abc import Callable
from typing import Any

import numpy as np
import pytest

pytest.importorskip("pennylane")

from support.pennylane_circuits import nimbrel_device, qml

DeviceError: Any = qml.exceptions.DeviceError


def whole(text: str) -> str:
    return f"^{re.escape(text)}$"


def run(circuit: Callable[[], Any], wires: Any = 2, shots: Any = None, **options: Any) -> Any:
    node = qml.QNode(circuit, nimbrel_device(wires), **options)
    return qml.set_shots(node, shots=shots)()


def test_a_matrix_that_is_not_unitary() -> None:
    def circuit() -> Any:
        qml.QubitUnitary(np.array([[1, 0], [0, 2]]), 1)
        return qml.state()

    text = (
        "QubitUnitary on wires [1] is not unitary, and nimbrel.qubit runs unitary operations only"
    )
    with pytest.raises(DeviceError, match=whole(text)):
        run(circuit)


def test_a_matrix_on_two_wires_that_is_not_unitary() -> None:
    def circuit() -> Any:
        qml.QubitUnitary(np.ones((4, 4)), [0, 1])
        return qml.state()

    text = (
        "QubitUnitary on wires [0, 1] is not unitary, and nimbrel.qubit runs unitary operations "
        "only"
    )
    with pytest.raises(DeviceError, match=whole(text)):
        run(circuit)


def test_an_operation_without_matrix_and_decomposition() -> None:
    def circuit() -> Any:
        qml.DepolarizingChannel(0.1, 0)
        return qml.expval(qml.Z(0))

    text = (
        "Operator DepolarizingChannel(0.1, wires=[0]) not supported with nimbrel.qubit and does "
        "not provide a decomposition."
    )
    with pytest.raises(DeviceError, match=whole(text)):
        run(circuit)


def test_a_wire_that_the_device_lacks() -> None:
    def circuit() -> Any:
        qml.X(5)
        return qml.expval(qml.Z(0))

    text = (
        "Cannot run circuit(s) on nimbrel.qubit as they contain wires not found on the device: {5}"
    )
    with pytest.raises(qml.exceptions.WireError, match=whole(text)):
        run(circuit)


def test_samples_without_shots() -> None:
    text = "Measurement sample(wires=[0]) not accepted for analytic simulation on nimbrel.qubit."
    with pytest.raises(DeviceError, match=whole(text)):
        run(lambda: qml.sample(wires=0))


def test_a_state_with_shots() -> None:
    text = "Measurement state(wires=[0, 1]) not accepted with finite shots on nimbrel.qubit"
    with pytest.raises(DeviceError, match=whole(text)):
        run(lambda: qml.state(), shots=10)


def measured(result: Callable[[], Any]) -> Callable[[], Any]:
    def circuit() -> Any:
        qml.measure(0)
        return result()

    return circuit


def test_a_state_over_all_outcomes() -> None:
    text = (
        "state(wires=[0, 1]) without shots is not supported by mcm_method='tree-traversal' of "
        "nimbrel.qubit; use mcm_method='deferred'"
    )
    with pytest.raises(DeviceError, match=whole(text)):
        run(measured(lambda: qml.state()), mcm_method="tree-traversal")


def test_a_shadow_over_all_outcomes() -> None:
    text = (
        "shadow(wires=[1]) with shots is not supported by mcm_method='tree-traversal' of "
        "nimbrel.qubit; use mcm_method='deferred'"
    )
    with pytest.raises(DeviceError, match=whole(text)):
        run(measured(lambda: qml.classical_shadow(wires=1)), shots=10)


def test_a_method_for_mid_circuit_measurements() -> None:
    text = (
        "mcm_method='one-shot' is not supported by nimbrel.qubit, only 'deferred' and "
        "'tree-traversal'"
    )
    with pytest.raises(DeviceError, match=whole(text)):
        run(measured(lambda: qml.expval(qml.Z(1))), shots=10, mcm_method="one-shot")


def test_filled_shots_of_branches() -> None:
    text = "postselect_mode='fill-shots' needs mcm_method='deferred'"
    with pytest.raises(DeviceError, match=whole(text)):
        run(
            measured(lambda: qml.expval(qml.Z(1))),
            shots=10,
            mcm_method="tree-traversal",
            postselect_mode="fill-shots",
        )


def test_filling_shots_with_nothing() -> None:
    def circuit() -> Any:
        qml.measure(0, postselect=1)
        return qml.expval(qml.Z(1))

    text = (
        "the circuit postselects an outcome of probability 0, so postselect_mode='fill-shots' has "
        "no shots to fill with"
    )
    with pytest.raises(RuntimeError, match=whole(text)):
        run(circuit, shots=10, postselect_mode="fill-shots")


def adjoint(circuit: Callable[[Any], Any], **options: Any) -> Any:
    node = qml.QNode(circuit, nimbrel_device(2), diff_method="adjoint", **options)
    return qml.jacobian(node)(qml.numpy.array(0.3, requires_grad=True))


def test_the_adjoint_of_probabilities() -> None:
    def circuit(angle: Any) -> Any:
        qml.RX(angle, 0)
        return qml.probs(wires=0)

    with pytest.raises(qml.exceptions.QuantumFunctionError, match="does not support adjoint"):
        adjoint(circuit)
    text = (
        "diff_method='adjoint' on nimbrel.qubit takes expectation values of observables only, not "
        "probs(wires=[0]); use diff_method='parameter-shift'"
    )
    device = nimbrel_device(2)
    config = qml.devices.ExecutionConfig(gradient_method="adjoint")
    pipeline = device.preprocess_transforms(device.setup_execution_config(config))
    with pytest.raises(DeviceError, match=whole(text)):
        pipeline([qml.tape.QuantumScript([qml.RX(0.3, 0)], [qml.probs(wires=0)])])


def test_a_parameter_of_the_engine() -> None:
    with pytest.raises(TypeError, match="nonsense"):
        nimbrel_device(2, nonsense=1)


def test_a_device_option() -> None:
    config = qml.devices.ExecutionConfig(device_options={"threads": 2})
    with pytest.raises(DeviceError, match=r"^device option threads not present on <"):
        nimbrel_device(2).setup_execution_config(config)


def test_a_missing_framework_is_named() -> None:
    program = (
        "import sys\n"
        "sys.modules['pennylane'] = None\n"
        "import nimbrel\n"
        "try:\n"
        "    import nimbrel.pennylane\n"
        "except ImportError as error:\n"
        "    print(error)\n"
    )
    done = subprocess.run(
        [sys.executable, "-c", program], capture_output=True, text=True, check=True
    )
    assert done.stdout == "nimbrel.pennylane needs PennyLane: pip install nimbrel[pennylane]\n"


def test_the_companion_does_not_import_the_framework() -> None:
    program = "import sys, nimbrel; print('pennylane' in sys.modules)"
    done = subprocess.run(
        [sys.executable, "-c", program], capture_output=True, text=True, check=True
    )
    assert done.stdout == "False\n"
