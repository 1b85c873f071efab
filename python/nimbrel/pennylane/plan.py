"""What a circuit is made of for the engine: programs, and what happens between them."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from dataclasses import dataclass
from typing import Any, TypeAlias

import numpy as np

from nimbrel.amplitudes import Amplitudes
from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.rows import Row, pack_rows
from nimbrel.pennylane.translation import Places, expand
from nimbrel.records import RecordArray


@dataclass(frozen=True)
class Run:
    """Run a program."""

    records: RecordArray


@dataclass(frozen=True)
class RunIf:
    """Run a program if a value of earlier measurements is true."""

    condition: Any
    records: RecordArray


@dataclass(frozen=True)
class Measure:
    """Measure one qubit in the middle of the circuit.

    `uid` is PennyLane's identifier of the measurement. `flip` is the program that sets the qubit
    back to 0 after the outcome 1.
    """

    uid: Any
    bit: int
    postselect: int | None
    flip: RecordArray | None


@dataclass(frozen=True)
class Project:
    """Keep the terms in which some qubits have a value, and scale them to norm 1."""

    value: int
    mask: int


Step: TypeAlias = Run | RunIf | Measure | Project


@dataclass(frozen=True)
class Plan:
    """A circuit in the form that is run.

    Attributes:
        wires: The wires of the register, the highest qubit first.
        places: The bit of each wire.
        initial: Amplitudes to begin with, shape (2**num_qubits,); None is the state 0.
        steps: What to do, in order.
    """

    wires: Any
    places: Places
    initial: Amplitudes | None
    steps: Sequence[Step]

    @property
    def num_qubits(self) -> int:
        """Qubits of the register. The engine has none of 0 qubits."""
        return max(1, len(self.wires))

    @property
    def has_measurements(self) -> bool:
        """Whether the circuit measures in its middle."""
        return any(isinstance(step, Measure) for step in self.steps)


def circuit_wires(circuit: Any, device_wires: Any) -> Any:
    """The wires of a circuit's register, the most significant bit of a state index first.

    These are the wires that the circuit uses, in the order of the device or, for a device without
    wires, ascending if they are 0 to n - 1 and in the order of their use otherwise.
    """
    used = circuit.wires
    if device_wires is not None:
        present = set(used)
        return qml.wires.Wires([wire for wire in device_wires if wire in present])
    if set(used) == set(range(len(used))):
        return qml.wires.Wires(range(len(used)))
    return used


def wire_places(wires: Any) -> dict[Any, int]:
    """The bit of each wire: the first wire is the highest qubit."""
    highest = len(wires) - 1
    return {wire: 1 << highest - place for place, wire in enumerate(wires)}


class _Builder:
    def __init__(self, places: Places) -> None:
        self._places = places
        self._rows: list[Row] = []
        self._steps: list[Step] = []

    def add(self, op: Any) -> None:
        """Add an operation: its rows, or a step of its own."""
        special = _SPECIAL.get(type(op))
        if special is None:
            self._rows += expand(op, self._places)
        else:
            self._flush()
            self._steps.append(special(op, self._places))

    def steps(self) -> list[Step]:
        self._flush()
        return self._steps

    def _flush(self) -> None:
        if self._rows:
            self._steps.append(Run(pack_rows(self._rows)))
            self._rows = []


def _conditional(op: Any, places: Places) -> RunIf:
    return RunIf(op.meas_val, pack_rows(expand(op.base, places)))


def _measure(op: Any, places: Places) -> Measure:
    bit = places[op.wires[0]]
    flip = pack_rows(expand(qml.PauliX(op.wires), places)) if op.reset else None
    return Measure(op.meas_uid, bit, op.postselect, flip)


def _project(op: Any, places: Places) -> Project:
    bits = [places[wire] for wire in op.wires]
    kept = [bit for bit, value in zip(bits, op.data[0], strict=True) if value]
    return Project(sum(kept), sum(bits))


_SPECIAL: dict[Any, Callable[[Any, Places], Step]] = {
    qml.ops.MidMeasure: _measure,
    qml.ops.qubit.BasisStateProjector: _project,
    qml.ops.op_math.Conditional: _conditional,
}


def is_step(op: Any) -> bool:
    """Whether an operation is a step between programs."""
    return type(op) in _SPECIAL


def split_preparation(circuit: Any) -> tuple[Any | None, Sequence[Any]]:
    """The state preparation that a circuit begins with, if any, and the other operations."""
    ops = circuit.operations
    if ops and isinstance(ops[0], qml.operation.StatePrepBase):
        return ops[0], ops[1:]
    return None, ops


def initial_state(preparation: Any | None, wires: Any) -> Amplitudes | None:
    """The amplitudes of a state preparation, shape (2**n,), or None without one."""
    if preparation is None:
        return None
    vector = qml.math.toarray(preparation.state_vector(wire_order=wires))
    return np.ascontiguousarray(vector, dtype=np.complex128).reshape(-1)


def plan_circuit(circuit: Any, device_wires: Any) -> Plan:
    """Translate a circuit.

    Args:
        circuit: A `QuantumScript` of native operations, without broadcasting.
        device_wires: The device's wires or None.
    """
    wires = circuit_wires(circuit, device_wires)
    places = wire_places(wires)
    preparation, ops = split_preparation(circuit)
    builder = _Builder(places)
    for op in ops:
        builder.add(op)
    return Plan(wires, places, initial_state(preparation, wires), builder.steps())
