"""Random circuits for PennyLane's devices, and the device that ours are compared with."""

from __future__ import annotations

import importlib
import random
import zlib
from collections.abc import Callable, Sequence
from typing import Any

import numpy as np
import pytest

pytest.importorskip("pennylane", reason="the extra pennylane is not installed")
qml: Any = importlib.import_module("pennylane")
device_module: Any = importlib.import_module("nimbrel.pennylane")

ONE_WIRE = "PauliX PauliY PauliZ Hadamard S T SX PhaseShift RX RY RZ Rot U1 U2 U3"
TWO_WIRES = (
    "CNOT CY CZ CH SWAP ISWAP SISWAP PSWAP CRX CRY CRZ CRot ControlledPhaseShift IsingXX IsingYY "
    "IsingZZ IsingXY CPhaseShift00 CPhaseShift01 CPhaseShift10 SingleExcitation "
    "SingleExcitationPlus SingleExcitationMinus"
)
THREE_WIRES = "Toffoli CSWAP CCZ MultiRZ"
FOUR_WIRES = "DoubleExcitation DoubleExcitationPlus DoubleExcitationMinus"
WIRES = {
    name: wires
    for wires, names in enumerate([ONE_WIRE, TWO_WIRES, THREE_WIRES, FOUR_WIRES], start=1)
    for name in names.split()
}
DECOMPOSED = ("ECR", "OrbitalRotation", "FermionicSWAP", "QFT", "IsingZZ")


def nimbrel_device(wires: Any = None, **options: Any) -> Any:
    """Our device, found by its entry point's class."""
    return device_module.NimbrelQubit(wires=wires, **options)


def reference_device(wires: Any = None, **options: Any) -> Any:
    """PennyLane's own device."""
    return qml.device("default.qubit", wires=wires, **options)


def seeded(name: str) -> np.random.Generator:
    """A generator seeded from a name."""
    return np.random.default_rng(zlib.crc32(name.encode()))


def random_gate(rng: random.Random, name: str, wires: Sequence[Any]) -> Any:
    """A gate with random angles on random wires."""
    kind = getattr(qml, name)
    chosen = rng.sample(list(wires), WIRES[name])
    return kind(*(rng.uniform(-7, 7) for _ in range(kind.num_params)), wires=chosen)


def random_operation(rng: random.Random, wires: Sequence[Any]) -> Any:
    """A gate, now and then inverted, with controls, or of a kind that is decomposed."""
    name = rng.choice([name for name, count in WIRES.items() if count <= len(wires)])
    op = random_gate(rng, name, wires)
    if rng.random() < 0.2:
        op = qml.adjoint(op)
    free = [wire for wire in wires if wire not in op.wires]
    if free and rng.random() < 0.3:
        controls = rng.sample(free, rng.randint(1, min(2, len(free))))
        op = qml.ctrl(op, controls, control_values=[rng.random() < 0.5 for _ in controls])
    return op


def random_operations(rng: random.Random, wires: Sequence[Any], count: int) -> list[Any]:
    """A random circuit on some wires."""
    return [random_operation(rng, wires) for _ in range(count)]


def random_vector(seed: str, num_wires: int) -> Any:
    """A random state of norm 1, shape (2**num_wires,)."""
    rng = seeded(seed)
    vector = rng.normal(size=1 << num_wires) + 1j * rng.normal(size=1 << num_wires)
    return vector / np.linalg.norm(vector)


def both_results(operations: Callable[[], Any], wires: Any, **options: Any) -> tuple[Any, Any]:
    """The results of a quantum function on our device and on PennyLane's."""
    ours = qml.QNode(operations, nimbrel_device(wires), **options)()
    reference = qml.QNode(operations, reference_device(wires), **options)()
    return ours, reference
