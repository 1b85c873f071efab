"""Circuits as programs: `from_circuit` and what it returns."""

from __future__ import annotations

from collections.abc import Mapping, Sequence
from dataclasses import dataclass, replace
from typing import Any, Final, TypeAlias

import numpy as np
import numpy.typing as npt
from qiskit import QuantumCircuit
from qiskit.circuit import CircuitError
from qiskit.exceptions import QiskitError

from nimbrel.opcodes import Opcode

# These modules register the translation of their operations.
from nimbrel.qiskit import composite_gates as _composite_gates  # noqa: F401
from nimbrel.qiskit import control_flow as _control_flow  # noqa: F401
from nimbrel.qiskit import operations as _operations  # noqa: F401
from nimbrel.qiskit.conversion import convert
from nimbrel.qiskit.errors import ConversionError
from nimbrel.qiskit.flags import FIRST_FLAG
from nimbrel.qiskit.rows import Rows
from nimbrel.qiskit.small_phases import with_small_phases
from nimbrel.qiskit.templates import ANGLE, AngleSlots, is_symbolic
from nimbrel.records import QPU_OP, Program
from nimbrel.translation.back_jumps import BackJump
from nimbrel.translation.clifford_form import clifford_form
from nimbrel.translation.wide_rows import wide_rows

ParameterValues: TypeAlias = "Mapping[Any, Any] | Sequence[float] | npt.NDArray[np.float64]"

MASK_QUBITS: Final = 63
"""Qubits that fit every word of a record; the controls of a Pauli rotation are a signed word."""

TABLEAU_QUBITS: Final = 17
"""From this width on, a Clifford circuit is written in the forms that a tableau takes."""

_NOT_FINITE: Final = "an angle is not a finite number"
_RESET: Final = int(Opcode.RESET)


@dataclass(frozen=True, eq=False)
class CircuitProgram:
    """A circuit as records.

    Attributes:
        program: The records, the reset of the register first; shape (n,), dtype `QPU_OP`.
        num_qubits: Qubits of the register. Qubit k is the circuit's qubit k.
        flags: The read flag of each classical bit, in the circuit's order.
        stored_flags: Those of `flags` that every run stores; the others are never stored.
        global_phase: The phase that the program lacks, in radians: the circuit's state is
            exp(i global_phase) times that of the program. Conditional blocks add no phase to it.
        back_jumps: Jumps back of while loops, in the order of their positions. A program without
            any runs in one call; `SamplerV2` and `NimbrelBackend` run the others.
        random_at: Index and name of the circuit's first operation that measures or resets a qubit,
            so that the state is another one in every run; None if there is none.
    """

    program: Program
    num_qubits: int
    flags: tuple[int, ...]
    stored_flags: tuple[int, ...]
    global_phase: float
    back_jumps: tuple[BackJump, ...]
    random_at: tuple[int, str] | None

    def __str__(self) -> str:
        return str(self.program)


def from_circuit(
    circuit: QuantumCircuit,
    parameters: ParameterValues | None = None,
    *,
    clifford: bool | None = None,
) -> CircuitProgram:
    """Translate a circuit to a program.

    The program begins with the reset of its register. The measurement of a classical bit k is in
    read flag 2 + k.

    A `PauliEvolutionGate` means the product formula that the gate has as its `synthesis`.

    Args:
        circuit: Any circuit: gates, measurements, resets, control flow, classical expressions.
        parameters: Values of the circuit's parameters, as `QuantumCircuit.assign_parameters`
            takes them.
        clifford: Whether a Clifford circuit is written in the forms that a "StreamCliffordQPU"
            filter takes, which takes up to five records a gate and needs no state vector. None
            does so from 17 qubits on.

    Raises:
        ConversionError: If an operation has no exact translation, or a parameter has no value. The
            text names the operation and its index.
    """
    if parameters is not None:
        circuit = circuit.assign_parameters(parameters)
    refuse_unbound(circuit)
    return Template(circuit, clifford=clifford).program()


def refuse_unbound(circuit: QuantumCircuit) -> None:
    """Refuse a circuit with parameters that have no value.

    Raises:
        ConversionError: It names the first operation with such a parameter.
    """
    if not circuit.parameters:
        return
    for index, instruction in enumerate(circuit.data):
        for parameter in instruction.params:
            unbound = getattr(parameter, "parameters", ())
            if unbound:
                name = min(each.name for each in unbound)
                reason = f"the parameter {name!r} has no value"
                raise ConversionError(reason, (index, instruction.name))
    name = min(each.name for each in circuit.parameters)
    raise ConversionError(f"the parameter {name!r} of the global phase has no value")


class Template:
    """A circuit converted for any values of its parameters.

    Args:
        circuit: The circuit.
        clifford: As for `from_circuit`.

    Raises:
        ConversionError: As `from_circuit`. Where the translation of an operation needs the values
            of its parameters, `program` raises it.
    """

    def __init__(self, circuit: QuantumCircuit, *, clifford: bool | None = None) -> None:
        self._circuit = circuit
        self._clifford = clifford
        self._slots: AngleSlots | None = None
        self._base: CircuitProgram | None = None
        self._rows: Rows = []
        if not circuit.parameters:
            self._base = self._converted(circuit)
            return
        try:
            self._base = self._converted(circuit)
        except (ConversionError, QiskitError, CircuitError, TypeError):
            self._rows = []  # an operation needs the values

    def program(self, values: npt.NDArray[np.float64] | None = None) -> CircuitProgram:
        """The program for one value of each parameter, in the order of `circuit.parameters`.

        Raises:
            ConversionError: As `from_circuit`.
        """
        if values is None or not len(values):
            assert self._base is not None
            return self._base
        if self._base is None:
            bound = self._circuit.assign_parameters(values.tolist())
            return self._converted(bound)
        if self._slots is None:
            return self._base
        filled = self._base.program.copy()
        filled["angle"][self._slots.positions] = self._slots.angles(values)
        program, jumps = with_small_phases(filled, self._base.back_jumps)
        return replace(self._base, program=program, back_jumps=jumps)

    def _converted(self, circuit: QuantumCircuit) -> CircuitProgram:
        conversion = convert(circuit)
        initial = conversion.flags.initial_rows()
        rows = [(_RESET, circuit.num_qubits, *[0] * 9), *initial, *conversion.rows]
        jumps = [
            BackJump(position + len(initial) + 1, flag, destination + len(initial) + 1)
            for position, flag, destination in conversion.back_jumps
        ]
        symbolic = bool(circuit.parameters)
        if symbolic:
            if circuit.num_qubits > MASK_QUBITS:
                raise ConversionError("a register of several words needs the values")
            self._slots = AngleSlots(rows, list(circuit.parameters))
            for position in self._slots.positions.tolist():
                rows[position] = (*rows[position][:ANGLE], 0.0, *rows[position][ANGLE + 1 :])
        else:
            rows, jumps = self._formed(rows, jumps, circuit.num_qubits)
        program = np.array(rows, dtype=QPU_OP).view(Program)
        _refuse_infinite(circuit, program)
        if not symbolic and circuit.num_qubits <= MASK_QUBITS:
            program, moved = with_small_phases(program, jumps)
            jumps = [*moved]
        flags = tuple(range(FIRST_FLAG, FIRST_FLAG + circuit.num_clbits))
        stored = conversion.flags.always_stored()
        phase = conversion.phase
        return CircuitProgram(
            program,
            circuit.num_qubits,
            flags,
            tuple(flag for flag in flags if flag in stored),
            0.0 if is_symbolic(phase) else float(phase),
            tuple(jumps),
            conversion.random_at,
        )

    def _formed(
        self, rows: Rows, jumps: list[BackJump], num_qubits: int
    ) -> tuple[Rows, list[BackJump]]:
        """Rows in Clifford form and of 64-bit masks, as far as they have to be."""
        wanted = num_qubits >= TABLEAU_QUBITS if self._clifford is None else self._clifford
        for step in (
            *([_clifford_step] if wanted else []),
            *([wide_rows] if num_qubits > MASK_QUBITS else []),
        ):
            rows, starts = step(rows)
            jumps = [BackJump(starts[p], flag, starts[d]) for p, flag, d in jumps]
        return rows, jumps


def _clifford_step(rows: Rows) -> tuple[Rows, list[int]]:
    formed = clifford_form(rows)
    return (rows, list(range(len(rows) + 1))) if formed is None else formed


def _refuse_infinite(circuit: QuantumCircuit, program: Program) -> None:
    if np.isfinite(program["angle"]).all():
        return
    for index, instruction in enumerate(circuit.data):
        numbers = [param for param in instruction.params if isinstance(param, int | float)]
        if not np.isfinite(numbers).all():
            raise ConversionError(_NOT_FINITE, (index, instruction.name))
    raise ConversionError(_NOT_FINITE)
