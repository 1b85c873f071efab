"""Gates that are not standard gates, and operations that are known by a definition.

A controlled gate is its base gate under controls, since every row takes controls. What has no
function here is translated by its definition, or by Qiskit's synthesis if it has none.
"""

from __future__ import annotations

from functools import cache
from typing import Any

import numpy as np
from qiskit import QuantumCircuit
from qiskit.circuit import (
    AnnotatedOperation,
    ControlledGate,
    ControlModifier,
    Gate,
    Instruction,
    InverseModifier,
)
from qiskit.circuit.library import (
    DiagonalGate,
    PauliEvolutionGate,
    PauliGate,
    PauliProductRotationGate,
    StatePreparation,
    UCPauliRotGate,
    UGate,
    UnitaryGate,
    get_standard_gate_name_mapping,
)
from qiskit.exceptions import QiskitError
from qiskit.synthesis.evolution import ProductFormula
from qiskit.transpiler import PassManager
from qiskit.transpiler.passes import HighLevelSynthesis

from nimbrel.opcodes import Opcode
from nimbrel.qiskit.conversion import Conversion, Place, add_operation
from nimbrel.qiskit.errors import ConversionError
from nimbrel.qiskit.multiplexers import multiplexed, turned_once
from nimbrel.qiskit.rows import (
    Rows,
    When,
    global_phase,
    pauli_masks,
    product_rotation,
    row,
)
from nimbrel.qiskit.standard_gates import STANDARD_GATES
from nimbrel.qiskit.state_preparation import preparation_rows
from nimbrel.qiskit.unitary_matrices import unitary_rows

_X, _Y, _Z, _PHASE = int(Opcode.X), int(Opcode.Y), int(Opcode.Z), int(Opcode.PHASE)
_U_PARAMETERS = ("theta", "phi", "lambda")
_ZEROS, _ONES = "0+r", "1-l"
_H, _ROOTX, _ROOTX_INV = int(Opcode.H), int(Opcode.ROOTX), int(Opcode.ROOTX_INV)
_TURNS = {"+": _H, "-": _H, "r": _ROOTX, "l": _ROOTX}
_INVERSES = {_H: _H, _ROOTX: _ROOTX_INV}
_ROTATIONS = {"X": int(Opcode.RX), "Y": int(Opcode.RY), "Z": int(Opcode.RZ)}


@cache
def _standard_names() -> dict[type[Instruction], str]:
    return {gate.base_class: name for name, gate in get_standard_gate_name_mapping().items()}


@add_operation.register
def _(operation: Instruction, conversion: Conversion, place: Place) -> None:
    name = _standard_names().get(operation.base_class, "")
    if name in STANDARD_GATES and not isinstance(operation, ControlledGate):
        add = STANDARD_GATES[name]
        conversion.add_phase(add(conversion.rows, place.qubits, operation.params, place.when))
    elif operation.definition is not None:
        conversion.walk_inner(operation.definition, place)
    elif isinstance(operation, Gate) and hasattr(operation, "__array__"):
        _add_matrix(operation.to_matrix(), conversion, place)
    else:
        raise ConversionError("it has no definition by gates")


@add_operation.register
def _(operation: ControlledGate, conversion: Conversion, place: Place) -> None:
    count, base = operation.num_ctrl_qubits, operation.base_gate
    has_ancillas = operation.num_qubits != count + base.num_qubits
    if has_ancillas or (isinstance(base, UGate) and len(operation.params) > len(_U_PARAMETERS)):
        # Only the definition tells what happens to ancillas, and it alone has the fourth angle of
        # a controlled `CUGate`, whose base is called a `UGate`.
        conversion.walk_inner(operation.definition, place)
        return
    zeros = sum(
        mask for k, mask in enumerate(place.qubits[:count]) if not operation.ctrl_state >> k & 1
    )
    name = _standard_names().get(operation.base_class, "")
    when = place.when
    if name in STANDARD_GATES:
        when = When(when.controls, when.zeros | zeros, when.flag)
        STANDARD_GATES[name](conversion.rows, place.qubits, operation.params, when)
        return
    when = When(when.controls | sum(place.qubits[:count]), when.zeros | zeros, when.flag)
    _add_under(base, conversion, place, place.qubits[count:], when)


def _add_under(
    operation: Any, conversion: Conversion, place: Place, qubits: list[int], when: When
) -> None:
    add_operation(operation, conversion, place._replace(qubits=qubits, when=when))


@add_operation.register
def _(operation: AnnotatedOperation, conversion: Conversion, place: Place) -> None:
    base, qubits, when = operation.base_op, place.qubits, place.when
    if not isinstance(base, Instruction):
        _add_synthesised(operation, conversion, place)
        return
    # The qubits of the last modifier come first.
    for modifier in reversed(operation.modifiers):
        if isinstance(modifier, ControlModifier):
            own, qubits = qubits[: modifier.num_ctrl_qubits], qubits[modifier.num_ctrl_qubits :]
            ones = modifier.ctrl_state
            zeros = sum(mask for k, mask in enumerate(own) if not ones >> k & 1)
            when = When(when.controls | sum(own), when.zeros | zeros, when.flag)
        elif isinstance(modifier, InverseModifier):
            base = base.inverse()
        else:
            base = base.power(modifier.power)
    _add_under(base, conversion, place, qubits, when)


@add_operation.register
def _(operation: object, conversion: Conversion, place: Place) -> None:
    _add_synthesised(operation, conversion, place)


def _add_synthesised(operation: object, conversion: Conversion, place: Place) -> None:
    """Add an operation without a definition, such as a `Clifford`."""
    circuit = QuantumCircuit(len(place.qubits))
    try:
        circuit.append(operation, circuit.qubits)
        passes = PassManager([HighLevelSynthesis(basis_gates=[*STANDARD_GATES])])
        conversion.walk_inner(passes.run(circuit), place)
    except QiskitError as error:
        raise ConversionError(f"Qiskit does not synthesise it: {error.message}") from error


@add_operation.register
def _(operation: UnitaryGate, conversion: Conversion, place: Place) -> None:
    _add_matrix(operation.to_matrix(), conversion, place)


def _add_matrix(matrix: Any, conversion: Conversion, place: Place) -> None:
    conversion.add_phase(unitary_rows(conversion.rows, matrix, place.qubits, place.when))


@add_operation.register
def _(operation: PauliGate, conversion: Conversion, place: Place) -> None:
    letters = operation.params[0][::-1]
    for opcode, letter in ((_X, "X"), (_Y, "Y"), (_Z, "Z")):
        for qubit, own in zip(place.qubits, letters, strict=True):
            if own == letter:
                conversion.rows.append(row(opcode, qubit, place.when))


@add_operation.register
def _(operation: PauliProductRotationGate, conversion: Conversion, place: Place) -> None:
    pauli = operation.pauli()
    angle = -operation.params[0] if pauli.phase else operation.params[0]
    _add_rotation(pauli.to_label().lstrip("-")[::-1], place.qubits, angle, conversion, place.when)


def _add_rotation(
    letters: str, qubits: list[int], angle: Any, conversion: Conversion, when: When
) -> None:
    xs, zs = pauli_masks(letters, qubits)
    if xs or zs:
        product_rotation(conversion.rows, xs, zs, angle, when)
    else:
        conversion.add_phase(global_phase(conversion.rows, -angle / 2, when))


@add_operation.register
def _(operation: PauliEvolutionGate, conversion: Conversion, place: Place) -> None:
    """The product formula of the gate; one without terms is translated by its definition."""
    if not isinstance(operation.synthesis, ProductFormula):
        conversion.walk_inner(operation.definition, place)
        return
    for letters, numbers, angle in operation.synthesis.expand(operation):
        qubits = [place.qubits[number] for number in numbers]
        when, turns = _projected(letters, qubits, place.when)
        conversion.rows.extend(turns)
        _add_rotation(letters, qubits, angle, conversion, when)
        conversion.rows.extend((_INVERSES[turn[0]], *turn[1:]) for turn in turns)


def _projected(letters: str, qubits: list[int], when: When) -> tuple[When, Rows]:
    """The projectors of a term as controls, and the gates that turn them to projectors on 0 and 1.

    exp(-i t P (x) Q) with a projector Q rotates by P where Q holds, and does nothing elsewhere.
    """
    controls = zeros = 0
    turns: Rows = []
    free = When(flag=when.flag)
    for letter, qubit in zip(letters, qubits, strict=True):
        if letter in _ZEROS + _ONES:
            controls |= qubit
            zeros |= qubit if letter in _ZEROS else 0
        if letter in _TURNS:
            turns.append(row(_TURNS[letter], qubit, free))
    return When(when.controls | controls, when.zeros | zeros, when.flag), turns


@add_operation.register
def _(operation: DiagonalGate, conversion: Conversion, place: Place) -> None:
    phases = np.angle(operation.params)
    # The phase of a value of the qubits is one of the lowest qubit and one of the others.
    for number, qubit in enumerate(place.qubits):
        steps = turned_once(phases[1::2] - phases[0::2])
        above = place.qubits[number + 1 :]
        multiplexed(conversion.rows, _PHASE, steps, qubit, above, place.when)
        phases = phases[0::2]
    conversion.add_phase(global_phase(conversion.rows, float(phases[0]), place.when))


@add_operation.register
def _(operation: UCPauliRotGate, conversion: Conversion, place: Place) -> None:
    target, *controls = place.qubits
    angles = np.array([float(angle) for angle in operation.params])
    opcode = _ROTATIONS[operation.rot_axes]
    multiplexed(conversion.rows, opcode, angles, target, controls, place.when)


@add_operation.register
def _(operation: StatePreparation, conversion: Conversion, place: Place) -> None:
    """A state from qubits that are 0; anything else is as the gate's definition has it."""
    params = operation.params
    is_vector = len(params) == 1 << len(place.qubits) and not isinstance(params[0], str)
    is_inverse = operation.name != "state_preparation"
    if not is_vector or is_inverse or not conversion.is_untouched(place):
        conversion.walk_inner(operation.definition, place)
        return
    conversion.add_phase(preparation_rows(conversion.rows, params, place.qubits, place.when))
