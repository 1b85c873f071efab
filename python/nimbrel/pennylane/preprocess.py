"""What the device accepts, and the transforms that bring circuits to it."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any, Final

from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.execution import is_shadow
from nimbrel.pennylane.gates import MAKERS
from nimbrel.pennylane.mixtures import can_mix
from nimbrel.pennylane.plan import is_step
from nimbrel.pennylane.translation import decompose_once, has_angles, is_native

DEVICE_NAME: Final = "nimbrel.qubit"

_NAMES: Final = frozenset(kind.__name__ for kind in MAKERS) | {
    "CNOT", "CZ", "CY", "CH", "CSWAP", "CCZ", "Toffoli", "MultiControlledX", "CRX", "CRY", "CRZ",
    "CRot", "ControlledPhaseShift", "PauliRot",
}  # fmt: skip

TARGET_GATES: Final = (
    _NAMES
    | {f"C({name})" for name in _NAMES}
    | {f"Adjoint({name})" for name in _NAMES}
    | {"MidMeasureMP", "Projector"}
)
"""Names of the native gates, for PennyLane's decomposition by graphs."""


def accepts_operation(op: Any) -> bool:
    """Whether an operation needs no decomposition."""
    if is_native(op):
        return True
    if isinstance(op, qml.ops.op_math.Conditional):
        return is_native(op.base)
    return is_step(op) or type(op).__name__ in ("Allocate", "Deallocate")


def accepts_for_adjoint(op: Any) -> bool:
    """Whether the adjoint method takes an operation."""
    if not any(qml.math.requires_grad(value) for value in op.data):
        return is_native(op) or isinstance(op, qml.operation.StatePrepBase)
    return is_native(op) and has_angles(op)


def takes_adjoint_directly(circuit: Any, wires: Any) -> bool:
    """Whether the adjoint method takes a circuit as it is, without a decomposition.

    PennyLane asks before every execution, and the transforms would answer at several times the
    cost.
    """
    if circuit.shots or circuit.num_preps or not all(map(accepts_for_adjoint, circuit.operations)):
        return False
    if wires is not None and not set(circuit.wires) <= set(wires):
        return False
    return all(
        isinstance(process, qml.measurements.ExpectationMP)
        and process.obs is not None
        and _has_matrix(process.obs)
        for process in circuit.measurements
    )


def _has_matrix(obs: Any) -> bool:
    if isinstance(obs, qml.ops.CompositeOp):
        return all(_has_matrix(part) for part in obs.operands)
    return bool(obs.pauli_rep is not None or obs.has_matrix or obs.has_sparse_matrix)


def _is_diagonalizable(obs: Any) -> bool:
    if isinstance(obs, qml.ops.CompositeOp):
        return all(_is_diagonalizable(part) for part in obs.operands)
    if isinstance(obs, qml.ops.SymbolicOp):
        return _is_diagonalizable(obs.base)
    return bool(obs.has_diagonalizing_gates)


def accepts_exactly(process: Any) -> bool:
    """Whether a measurement process has an exact result."""
    if not isinstance(process, qml.measurements.StateMeasurement):
        return False
    if process.obs is None:
        return True
    is_mean = isinstance(process, qml.measurements.ExpectationMP)
    return _is_diagonalizable(process.obs) or (is_mean and _has_matrix(process.obs))


def accepts_with_shots(process: Any) -> bool:
    """Whether a measurement process has a result from shots."""
    if is_shadow(process):
        return True
    if not isinstance(process, qml.measurements.SampleMeasurement):
        return False
    return process.obs is None or _is_diagonalizable(process.obs)


def _mixes_or_draws(circuit: Any) -> None:
    if not any(isinstance(op, qml.ops.MidMeasure) for op in circuit.operations):
        return
    refused: Callable[[Any], bool] = is_shadow if circuit.shots else lambda each: not can_mix(each)
    for process in circuit.measurements:
        if refused(process):
            kind = "with shots" if circuit.shots else "without shots"
            raise qml.exceptions.DeviceError(
                f"{process} {kind} is not supported by mcm_method='tree-traversal' of "
                f"{DEVICE_NAME}; use mcm_method='deferred'"
            )


def _unchanged(results: Any) -> Any:
    return results[0]


def _validate_branches(tape: Any) -> Any:
    """Refuse measurement processes that have no sum over the branches of a circuit."""
    _mixes_or_draws(tape)
    return (tape,), _unchanged


def _validate_expectations(tape: Any) -> Any:
    """Refuse measurement processes other than expectation values of observables."""
    for process in tape.measurements:
        if not isinstance(process, qml.measurements.ExpectationMP) or process.obs is None:
            raise qml.exceptions.DeviceError(
                f"diff_method='adjoint' on {DEVICE_NAME} takes expectation values of observables "
                f"only, not {process}; use diff_method='parameter-shift'"
            )
    return (tape,), _unchanged


def _is_scalar(value: Any) -> bool:
    return isinstance(value, float) or getattr(value, "ndim", 1) == 0


def _expand_batches(tape: Any) -> Any:
    # PennyLane's transform asks every operation for its batch size, which takes a tenth of the
    # time of a small circuit. Numbers have no batch.
    if all(_is_scalar(value) for op in tape.operations for value in op.data):
        return (tape,), _unchanged
    return qml.transforms.broadcast_expand(tape)


expand_batches: Any = qml.transform(_expand_batches)
validate_branches: Any = qml.transform(_validate_branches)
validate_expectations: Any = qml.transform(_validate_expectations)


def device_transforms(config: Any, wires: Any) -> Any:
    """The transforms of a device, in the order of their use.

    Args:
        config: A complete `ExecutionConfig`.
        wires: The device's wires or None.

    Returns:
        A `CompilePipeline`.
    """
    checks = qml.devices.preprocess
    deferred = config.mcm_config.mcm_method == "deferred"
    pipeline = qml.CompilePipeline()
    if deferred:
        pipeline.add_transform(qml.defer_measurements, allow_postselect=True)
    pipeline.add_transform(
        checks.decompose,
        stopping_condition=accepts_operation,
        decomposer=decompose_once,
        device_wires=wires,
        target_gates=TARGET_GATES,
        name=DEVICE_NAME,
    )
    pipeline.add_transform(
        checks.device_resolve_dynamic_wires, wires=wires, allow_resets=not deferred
    )
    pipeline.add_transform(checks.validate_device_wires, wires, name=DEVICE_NAME)
    pipeline.add_transform(
        checks.validate_measurements,
        analytic_measurements=accepts_exactly,
        sample_measurements=accepts_with_shots,
        name=DEVICE_NAME,
    )
    if not deferred:
        pipeline.add_transform(validate_branches)
    pipeline.add_transform(expand_batches)
    if config.gradient_method == "adjoint":
        _add_adjoint(pipeline, wires)
    return pipeline


def _add_adjoint(pipeline: Any, wires: Any) -> None:
    name = f"adjoint + {DEVICE_NAME}"
    checks = qml.devices.preprocess
    pipeline.add_transform(checks.no_sampling, name=name)
    pipeline.add_transform(validate_expectations)
    pipeline.add_transform(
        checks.decompose,
        stopping_condition=accepts_for_adjoint,
        skip_initial_state_prep=False,
        device_wires=wires,
        target_gates=TARGET_GATES - {"MidMeasureMP", "Projector"},
        name=name,
    )
    pipeline.add_transform(checks.validate_observables, _has_matrix, name=name)
    pipeline.add_transform(checks.validate_adjoint_trainable_params)
