"""The PennyLane device `nimbrel.qubit`."""

from __future__ import annotations

from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from dataclasses import replace
from typing import Any

import numpy as np

from nimbrel.dense import DenseSimulator
from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.adjoint import AdjointRun
from nimbrel.pennylane.execution import FILL_SHOTS, execute
from nimbrel.pennylane.preprocess import (
    DEVICE_NAME,
    device_transforms,
    takes_adjoint_directly,
)
from nimbrel.pennylane.register import Register

_MCM_METHODS = ("deferred", "tree-traversal")


@qml.devices.modifiers.simulator_tracking
@qml.devices.modifiers.single_tape_support
class NimbrelQubit(qml.devices.Device):  # type: ignore[misc] # PennyLane has no types
    """A PennyLane device that runs circuits on the dense filter.

        import pennylane as qml

        dev = qml.device("nimbrel.qubit", wires=3)

    The first wire is the most significant bit of a state index, as on every PennyLane device. It
    is the highest qubit of the engine's register.

    Args:
        wires: The number of wires or their labels. None takes the wires of each circuit.
        shots: Deprecated by PennyLane; use `qml.set_shots`.
        seed: Seed of the generator that draws all outcomes, or "global", which takes it from
            `numpy.random`.
        **params: Fields of `nimbrel.SimParams` for the filter, such as `max_num_threads`.
    """

    def __init__(
        self,
        wires: Any = None,
        shots: Any = None,
        seed: Any = "global",
        **params: Any,
    ) -> None:
        super().__init__(wires=wires, shots=shots)
        # PennyLane's users seed NumPy's old generator.
        start: Any = np.random.randint(2**31) if seed == "global" else seed  # noqa: NPY002
        self._rng = np.random.default_rng(start)
        self._params = params
        with self._register():
            pass  # reports a wrong parameter now and not at the first circuit

    @property
    def name(self) -> str:
        """The name by which `qml.device` finds this class."""
        return DEVICE_NAME

    def setup_execution_config(self, config: Any = None, circuit: Any = None) -> Any:
        """Complete an `ExecutionConfig` with this device's choices.

        Mid-circuit measurements run by "tree-traversal" with shots and by "deferred" without, if
        the caller does not choose. The derivative is "adjoint" if the caller asks for the best.

        Raises:
            pennylane.exceptions.DeviceError: If the configuration asks for what the device lacks.
        """
        config = qml.devices.ExecutionConfig() if config is None else config
        for option in config.device_options:
            raise qml.exceptions.DeviceError(f"device option {option} not present on {self}")
        updated: dict[str, Any] = {"mcm_config": _mcm_config(config.mcm_config, circuit)}
        method = config.gradient_method
        if method == "best":
            method = updated["gradient_method"] = "adjoint"
        adjoint = method == "adjoint"
        # One backward pass serves all results if their weights are known, so a Jacobian is taken
        # with the forward pass only if the circuit has a single result.
        single = circuit is None or len(circuit.measurements) == 1
        if config.use_device_gradient is None:
            updated["use_device_gradient"] = adjoint
        if config.use_device_jacobian_product is None:
            updated["use_device_jacobian_product"] = adjoint and not single
        if config.grad_on_execution is None:
            updated["grad_on_execution"] = adjoint and single
        return replace(config, **updated)

    def preprocess_transforms(self, execution_config: Any = None) -> Any:
        """The transforms that bring a circuit to this device."""
        config = execution_config or qml.devices.ExecutionConfig()
        return device_transforms(config, self.wires)

    def supports_derivatives(self, execution_config: Any = None, circuit: Any = None) -> bool:
        """Whether the device has the derivatives of a circuit: those of expectation values."""
        if execution_config is None:
            return True
        if execution_config.gradient_method not in ("adjoint", "best"):
            return False
        return circuit is None or self._takes_adjoint(circuit, execution_config)

    def supports_vjp(self, execution_config: Any = None, circuit: Any = None) -> bool:
        """Whether the device has the vector-Jacobian products of a circuit."""
        return self.supports_derivatives(execution_config, circuit)

    def execute(self, circuits: Any, execution_config: Any = None) -> Any:
        """Run circuits that the transforms have prepared, and return their results."""
        config = execution_config or qml.devices.ExecutionConfig()
        mode = config.mcm_config.postselect_mode
        with self._register() as register:
            return tuple(
                execute(register, circuit, self.wires, self._rng, mode) for circuit in circuits
            )

    def compute_derivatives(self, circuits: Any, execution_config: Any = None) -> Any:
        """The derivatives of expectation values by the trainable parameters."""
        del execution_config
        with self._register() as register:
            return tuple(
                _jacobian(AdjointRun(register, circuit, self.wires), circuit)
                for circuit in circuits
            )

    def execute_and_compute_derivatives(self, circuits: Any, execution_config: Any = None) -> Any:
        """The results and the derivatives, from one forward pass for each circuit."""
        del execution_config
        with self._register() as register:
            pairs = [_values_and_jacobian(register, circuit, self.wires) for circuit in circuits]
        return tuple(zip(*pairs, strict=True))

    def compute_vjp(self, circuits: Any, cotangents: Any, execution_config: Any = None) -> Any:
        """The derivatives of the results times the cotangents, by the trainable parameters."""
        del execution_config
        with self._register() as register:
            return tuple(
                _vjp(AdjointRun(register, circuit, self.wires), circuit, weights)
                for circuit, weights in zip(circuits, cotangents, strict=True)
            )

    def execute_and_compute_vjp(
        self, circuits: Any, cotangents: Any, execution_config: Any = None
    ) -> Any:
        """The results, and the derivatives of their products with the cotangents."""
        results = self.execute(circuits, execution_config)
        return results, self.compute_vjp(circuits, cotangents, execution_config)

    def _takes_adjoint(self, circuit: Any, config: Any) -> bool:
        if takes_adjoint_directly(circuit, self.wires):
            return True
        config = replace(config, gradient_method="adjoint")
        try:
            config = self.setup_execution_config(config, circuit)
            self.preprocess_transforms(config)((circuit,))
        except (
            qml.exceptions.DeviceError,
            qml.exceptions.QuantumFunctionError,
            qml.operation.DecompositionUndefinedError,
        ):
            return False
        return True

    @contextmanager
    def _register(self) -> Iterator[Register]:
        # A filter for each call: a device may be copied, pickled and shared by threads.
        with DenseSimulator(check_qubits=False, **self._params) as sim:
            yield Register(sim)


def _mcm_config(config: Any, circuit: Any) -> Any:
    method = config.mcm_method
    if method is None:
        method = "tree-traversal" if getattr(circuit, "shots", None) else "deferred"
    elif method == "device":
        method = "tree-traversal"
    if method not in _MCM_METHODS:
        raise qml.exceptions.DeviceError(
            f"mcm_method='{method}' is not supported by {DEVICE_NAME}, only "
            f"{' and '.join(repr(each) for each in _MCM_METHODS)}"
        )
    if config.postselect_mode == FILL_SHOTS and method != "deferred":
        # The shots of one branch do not tell how many others reach the postselection.
        method = "deferred" if config.mcm_method is None else method
        if method != "deferred":
            raise qml.exceptions.DeviceError(
                "postselect_mode='fill-shots' needs mcm_method='deferred'"
            )
    return replace(config, mcm_method=method)


def _jacobian(run: AdjointRun, circuit: Any) -> Any:
    rows = [
        run.gradient(run.weighted_image([1.0], [process.obs])) for process in circuit.measurements
    ]
    shaped = [_unwrapped([np.float64(each) for each in row]) for row in rows]
    return shaped[0] if len(shaped) == 1 else tuple(shaped)


def _vjp(run: AdjointRun, circuit: Any, cotangents: Any) -> Any:
    observables = [process.obs for process in circuit.measurements]
    weights = np.array(cotangents, dtype=float).reshape(len(observables), -1)
    gradients = [
        run.gradient(run.weighted_image(list(column), observables)) for column in weights.T
    ]
    batched = np.ndim(cotangents) > int(len(observables) > 1)
    return tuple(np.stack(gradients, axis=1)) if batched else tuple(gradients[0])


def _values_and_jacobian(register: Register, circuit: Any, wires: Any) -> tuple[Any, Any]:
    run = AdjointRun(register, circuit, wires)
    values = [np.float64(run.expectation(process.obs)) for process in circuit.measurements]
    return _unwrapped(values), _jacobian(run, circuit)


def _unwrapped(values: Sequence[Any]) -> Any:
    return values[0] if len(values) == 1 else tuple(values)
