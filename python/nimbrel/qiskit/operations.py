"""Operations that are neither gates nor control flow."""

from __future__ import annotations

from qiskit.circuit import Barrier, Delay, Measure, Reset, Store
from qiskit.circuit.library import Initialize, PauliProductMeasurement

from nimbrel.opcodes import Opcode
from nimbrel.qiskit.conversion import Conversion, Place, add_operation
from nimbrel.qiskit.errors import ConversionError
from nimbrel.qiskit.rows import pauli_masks, row
from nimbrel.qiskit.state_preparation import preparation_rows

_CLEAR, _PPM = int(Opcode.CLEAR), int(Opcode.PPM)


@add_operation.register
def _(_operation: Barrier, _conversion: Conversion, _place: Place) -> None:
    """Records run in order without a barrier."""


@add_operation.register
def _(_operation: Delay, _conversion: Conversion, _place: Place) -> None:
    """A qubit of the engine does not change while it waits."""


@add_operation.register
def _(_operation: Measure, conversion: Conversion, place: Place) -> None:
    _refuse_controls(place)
    conversion.add_read(place.qubits[0], place.clbits[0], place.when)


@add_operation.register
def _(operation: PauliProductMeasurement, conversion: Conversion, place: Place) -> None:
    _refuse_controls(place)
    pauli, flag = operation.pauli(), place.clbits[0]
    xs, zs = pauli_masks(pauli.to_label().lstrip("-")[::-1], place.qubits)
    conversion.is_random = True
    conversion.flags.note_stored(flag)
    sign = -1.0 if pauli.phase else 1.0
    conversion.rows.append((_PPM, xs, zs, sign, place.when.flag, flag, 0, 0, 0, 0, 0))


@add_operation.register
def _(_operation: Reset, conversion: Conversion, place: Place) -> None:
    _clear(conversion, place)


@add_operation.register
def _(operation: Initialize, conversion: Conversion, place: Place) -> None:
    if len(operation.params) != 1 << len(place.qubits) or isinstance(operation.params[0], str):
        # Letters or a number, whose definition is one gate a qubit.
        conversion.walk_inner(operation.definition, place)
        return
    _clear(conversion, place)
    phase = preparation_rows(conversion.rows, operation.params, place.qubits, place.when)
    conversion.add_phase(phase)


@add_operation.register
def _(operation: Store, conversion: Conversion, place: Place) -> None:
    mark = conversion.flags.mark()
    conversion.store(operation.lvalue, operation.rvalue, place.scope)
    conversion.flags.release(mark)


def _clear(conversion: Conversion, place: Place) -> None:
    _refuse_controls(place)
    if not conversion.is_untouched(place):
        conversion.is_random = True
        conversion.rows.append(row(_CLEAR, sum(place.qubits), place.when))


def _refuse_controls(place: Place) -> None:
    if place.when.controls:
        raise ConversionError("only unitary operations can have controls")
