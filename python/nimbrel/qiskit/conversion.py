"""The walk over a circuit that collects its records.

`Conversion` holds what the whole circuit shares. A `Scope` holds what differs from block to block:
which mask a qubit has and which flag a classical bit. Standard gates are added by their row
functions. `add_operation` adds everything else; `operations`, `composite_gates` and `control_flow`
register its cases by the class of the operation.
"""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import contextmanager
from dataclasses import dataclass, field
from functools import singledispatch
from typing import Any, Final, NamedTuple

from qiskit.circuit import ClassicalRegister, Clbit, QuantumCircuit, Qubit
from qiskit.circuit.classical import expr

from nimbrel.opcodes import Opcode
from nimbrel.qiskit.errors import ConversionError
from nimbrel.qiskit.expressions import Expressions, Literals, Logic, width_of
from nimbrel.qiskit.flags import FIRST_FLAG, Flags
from nimbrel.qiskit.rows import ALWAYS, Angle, Rows, When, global_phase
from nimbrel.qiskit.standard_gates import STANDARD_GATES
from nimbrel.translation.back_jumps import BackJump

_JUMP, _LABEL, _READ = int(Opcode.JUMP_FWD), int(Opcode.LABEL), int(Opcode.READ)
_PPR: Final = int(Opcode.PPR)
_WITHOUT_QUBITS: Final = frozenset({_JUMP, _LABEL, int(Opcode.FLAG_NAND)})


class Loop(NamedTuple):
    """A loop around the operations that are being added.

    Attributes:
        leave: Label behind the loop.
        next_round: Label behind the body.
        repeat_flag: The flag that makes a while loop repeat; 0 for a for loop.
    """

    leave: int
    next_round: int
    repeat_flag: int


@dataclass(frozen=True)
class Scope:
    """The qubits and classical bits of a block.

    Attributes:
        qubits: Mask of each qubit.
        clbits: Flag of each classical bit, those of enclosing blocks included.
        when: The conditions under which the block's operations act.
        loops: The loops around the block, innermost last.
        is_circuit: Whether this is the whole circuit.
    """

    qubits: dict[Qubit, int]
    clbits: dict[Clbit, int]
    when: When = ALWAYS
    loops: tuple[Loop, ...] = ()
    is_circuit: bool = False


@dataclass
class Conversion:
    """The state of one conversion.

    Attributes:
        flags: Numbers of the read flags.
        rows: The rows collected so far.
        phase: Global phase that the rows lack, in radians.
        back_jumps: Jumps back, in the order of their positions.
        variables: Flags of each classical variable.
        merge_from: Reads before this row are not extended, because a loop begins here.
        is_random: Whether a row measures or resets a qubit.
        random_at: Index and name of the circuit's first operation that measures or resets.
    """

    flags: Flags
    rows: Rows = field(default_factory=list)
    phase: Angle = 0.0
    back_jumps: list[BackJump] = field(default_factory=list)
    variables: dict[expr.Var, Literals] = field(default_factory=dict)
    merge_from: int = 0
    is_random: bool = False
    random_at: tuple[int, str] | None = None
    _labels: int = 0
    _touched: int = 0
    _seen: int = 0

    def walk(self, circuit: QuantumCircuit, scope: Scope) -> None:
        """Add the rows of a circuit or a block.

        Raises:
            ConversionError: If an operation has no exact translation.
        """
        rows, masks, when = self.rows, scope.qubits, scope.when
        index, instruction = 0, None
        self.add_phase(global_phase(rows, circuit.global_phase, when))
        try:
            for index, instruction in enumerate(circuit.data):
                add = STANDARD_GATES.get(instruction.name)
                if add is not None and instruction.is_standard_gate():
                    qubits = [masks[qubit] for qubit in instruction.qubits]
                    phase = add(rows, qubits, instruction.params, when)
                    if phase is not None:
                        self.phase = self.phase + phase
                    continue
                add_operation(instruction.operation, self, _place(instruction, scope))
                if self.is_random and scope.is_circuit and self.random_at is None:
                    self.random_at = index, instruction.name
        except ConversionError as error:
            if instruction is not None:
                error.inside(index, instruction.name)
            raise

    def walk_inner(
        self,
        circuit: QuantumCircuit,
        place: Place,
        when: When | None = None,
        loop: Loop | None = None,
    ) -> None:
        """Add the rows of a circuit that an operation holds.

        Args:
            circuit: The definition of a gate, or a block.
            place: Where the operation stands.
            when: The conditions of the inner operations; None takes those of the operation.
            loop: The loop whose body the circuit is.
        """
        scope = place.scope
        self.walk(
            circuit,
            Scope(
                dict(zip(circuit.qubits, place.qubits, strict=True)),
                {**scope.clbits, **dict(zip(circuit.clbits, place.clbits, strict=True))},
                place.when if when is None else when,
                scope.loops if loop is None else (*scope.loops, loop),
            ),
        )

    def add_phase(self, phase: Angle | None) -> None:
        """Add to the global phase what a row function has returned."""
        if phase is not None:
            self.phase = self.phase + phase

    def add_read(self, qubit: int, flag: int, when: When) -> None:
        """Add a measurement of one qubit, by extending the previous record if possible."""
        self.is_random = True
        self.flags.note_stored(flag)
        last = self.rows[-1] if len(self.rows) > self.merge_from else None
        if last is not None and last[0] == _READ and last[4] == when.flag and qubit > last[1]:
            mask, first = last[1], last[5]
            if first + mask.bit_count() == flag:
                self.rows[-1] = (_READ, mask | qubit, *last[2:])
                return
        self.rows.append((_READ, qubit, 0, 0.0, when.flag, flag, 0, 0, 0, 0, 0))

    def new_label(self) -> int:
        """Return the id of a new label."""
        self._labels += 1
        return self._labels

    def jump(self, label: int, flag: int = 0) -> None:
        """Add a jump forward to a label; `flag` is its condition."""
        self.rows.append((_JUMP, label, 0, 0.0, flag, 0, 0, 0, 0, 0, 0))

    def label(self, label: int) -> None:
        """Add a label."""
        self.rows.append((_LABEL, label, 0, 0.0, 0, 0, 0, 0, 0, 0, 0))

    @property
    def logic(self) -> Logic:
        """Boolean functions, whose rows are added here."""
        return Logic(self.rows, self.flags)

    @contextmanager
    def conditional(self) -> Iterator[None]:
        """Mark what is added meanwhile as conditional. Its phase is that of a whole run."""
        phase = self.phase
        self.flags.conditional_depth += 1
        yield
        self.flags.conditional_depth -= 1
        self.phase = phase

    def value(self, node: expr.Expr, scope: Scope) -> Literals:
        """Add the rows that compute an expression, and return its literals."""

        def read(variable: expr.Var) -> Literals:
            literals = self.flags_of(variable, scope)
            for flag in literals:
                self.flags.note_read(flag)
            return literals

        return Expressions(self.logic, read).value(node)

    def flags_of(self, variable: expr.Var, scope: Scope) -> Literals:
        """The flags of a classical bit, a register or a variable, the least significant first."""
        if isinstance(variable.var, Clbit):
            return [scope.clbits[variable.var]]
        if isinstance(variable.var, ClassicalRegister):
            return [scope.clbits[bit] for bit in variable.var]
        if variable not in self.variables:
            width = width_of(variable.type)
            self.variables[variable] = [self.flags.allocate_variable() for _ in range(width)]
        return list(self.variables[variable])

    def store(self, target: expr.Expr, value: expr.Expr, scope: Scope) -> None:
        """Add the rows that store the value of an expression in a variable, or a bit of one."""
        values = self.value(value, scope)
        if isinstance(target, expr.Index):
            whole, index = target.target, self.value(target.index, scope)
            dests = self.flags_of(whole, scope)
            values = self.logic.replaced(self.value(whole, scope), index, values[0])
        else:
            dests = self.flags_of(target, scope)
        self.logic.store(values, dests)
        for flag in dests:
            self.flags.note_stored(flag)

    def is_untouched(self, place: Place) -> bool:
        """Whether the qubits of an operation are certainly 0, since no row before has them."""
        if place.scope.loops or self.flags.conditional_depth or place.when.controls:
            return False
        for opcode, target, controls, _, _, products, *_ in self.rows[self._seen :]:
            if opcode not in _WITHOUT_QUBITS:
                self._touched |= target | controls | (products if opcode == _PPR else 0)
        # The last row may still be extended.
        self._seen = max(len(self.rows) - 1, 0)
        return not self._touched & sum(place.qubits)


class Place(NamedTuple):
    """Where an operation stands.

    Attributes:
        qubits: The mask of each of its qubits.
        clbits: The flag of each of its classical bits.
        when: The conditions under which it acts.
        scope: The block around it.
    """

    qubits: list[int]
    clbits: list[int]
    when: When
    scope: Scope


def _place(instruction: Any, scope: Scope) -> Place:
    return Place(
        [scope.qubits[qubit] for qubit in instruction.qubits],
        [scope.clbits[clbit] for clbit in instruction.clbits],
        scope.when,
        scope,
    )


@singledispatch
def add_operation(operation: Any, conversion: Conversion, place: Place) -> None:
    """Add the rows of an operation that is not a standard gate.

    Args:
        operation: The operation; its class chooses the function.
        conversion: Takes the rows.
        place: Where the operation stands.

    Raises:
        ConversionError: If it has no exact translation.
    """
    raise TypeError(f"{operation!r} on {place} has no translation in {conversion}")


def convert(circuit: QuantumCircuit) -> Conversion:
    """Collect the rows of a circuit.

    Raises:
        ConversionError: If an operation has no exact translation.
    """
    conversion = Conversion(Flags(circuit.num_clbits))
    for variable in circuit.iter_input_vars():
        raise ConversionError(f"the input variable {variable.name!r} has no value")
    conversion.walk(
        circuit,
        Scope(
            {qubit: 1 << index for index, qubit in enumerate(circuit.qubits)},
            {clbit: FIRST_FLAG + index for index, clbit in enumerate(circuit.clbits)},
            is_circuit=True,
        ),
    )
    return conversion
