"""Control flow, by jumps forward and by repeated rows.

A block of a few gates gets the condition in each of its records. Other blocks are skipped by a
jump. A for loop repeats its rows. A while loop ends with a jump back, which the engine does not
have: the companion runs the records up to it, reads the loop's flag and continues accordingly. The
flag is 0 unless the loop is to repeat, so a jump back does nothing if the whole loop was skipped.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

from qiskit.circuit import (
    CASE_DEFAULT,
    Barrier,
    BoxOp,
    BreakLoopOp,
    ContinueLoopOp,
    Delay,
    ForLoopOp,
    Gate,
    IfElseOp,
    Measure,
    Parameter,
    QuantumCircuit,
    Reset,
    SwitchCaseOp,
    WhileLoopOp,
)
from qiskit.circuit.classical import expr

from nimbrel.qiskit.conversion import Conversion, Loop, Place, add_operation
from nimbrel.qiskit.errors import ConversionError
from nimbrel.qiskit.flags import TRUE, clearing_row
from nimbrel.qiskit.rows import When
from nimbrel.translation.back_jumps import BackJump
from nimbrel.translation.boolean_logic import constant_flags

_SHORT_BLOCK = 16
"""Operations of a block whose records carry the condition themselves."""


def _condition(operation: Any, conversion: Conversion, place: Place) -> int:
    condition = operation.condition
    node = condition if isinstance(condition, expr.Expr) else expr.lift_legacy_condition(condition)
    return conversion.value(node, place.scope)[0]


@add_operation.register
def _(operation: IfElseOp, conversion: Conversion, place: Place) -> None:
    mark = conversion.flags.mark()
    condition = _condition(operation, conversion, place)
    blocks = [block for block in operation.blocks if block is not None]
    if abs(condition) == TRUE:
        for block in blocks[0 if condition == TRUE else 1 :][:1]:
            conversion.walk_inner(block, place)
    elif all(_is_short(block, condition, place) for block in blocks):
        for block, flag in zip(blocks, (condition, -condition), strict=False):
            with conversion.conditional():
                when = When(place.when.controls, place.when.zeros, flag)
                conversion.walk_inner(block, place, when)
    else:
        _add_branches([(condition, block) for block in blocks[:1]], blocks[1:], conversion, place)
    conversion.flags.release(mark)


def _is_short(block: QuantumCircuit, condition: int, place: Place) -> bool:
    """Whether the records of a block may have a condition each."""
    if place.when.flag or len(block.data) > _SHORT_BLOCK:
        return False
    flags = dict(zip(block.clbits, place.clbits, strict=True))
    for instruction in block.data:
        operation = instruction.operation
        if isinstance(operation, Measure):
            if flags[instruction.clbits[0]] == abs(condition):
                return False
        elif not isinstance(operation, Gate | Reset | Barrier | Delay):
            return False
    return True


def _add_branches(
    cases: Sequence[tuple[int, QuantumCircuit]],
    otherwise: Sequence[QuantumCircuit],
    conversion: Conversion,
    place: Place,
) -> None:
    """Add blocks of which the first one whose condition holds runs, else `otherwise`."""
    end = conversion.new_label()
    for number, (condition, block) in enumerate(cases):
        behind = conversion.new_label()
        conversion.jump(behind, -condition)
        with conversion.conditional():
            conversion.walk_inner(block, place)
        if otherwise or number < len(cases) - 1:
            conversion.jump(end)
        conversion.label(behind)
    for block in otherwise:
        with conversion.conditional():
            conversion.walk_inner(block, place)
    conversion.label(end)


@add_operation.register
def _(operation: SwitchCaseOp, conversion: Conversion, place: Place) -> None:
    mark = conversion.flags.mark()
    target = conversion.value(expr.lift(operation.target), place.scope)
    # The blocks may change the target, so that all conditions are computed before the first.
    cases, otherwise = [], []
    for labels, block in operation.cases_specifier():
        if CASE_DEFAULT in labels:
            otherwise.append(block)
            continue
        equal = [
            conversion.logic.equal(target, constant_flags(label, len(target)))
            for label in labels
            if label >> len(target) == 0
        ]
        cases.append((conversion.logic.any_of(equal), block))
    _add_branches(cases, otherwise, conversion, place)
    conversion.flags.release(mark)


@add_operation.register
def _(operation: BoxOp, conversion: Conversion, place: Place) -> None:
    if operation.annotations:
        raise ConversionError("the meaning of its annotations is not known here")
    conversion.walk_inner(operation.body, place)


@add_operation.register
def _(operation: ForLoopOp, conversion: Conversion, place: Place) -> None:
    indices, parameter, body = operation.params
    loop = Loop(conversion.new_label(), conversion.new_label(), 0)
    conversion.merge_from = len(conversion.rows)
    leaves = _leaves(body)
    if leaves:
        conversion.flags.conditional_depth += 1
    if _takes_index(parameter, body):
        for index in indices:
            _add_round(
                _with_index(body, parameter, index, conversion, place), conversion, place, loop
            )
    else:
        _repeat(body, len(indices), conversion, place, loop)
    if leaves:
        conversion.flags.conditional_depth -= 1
        conversion.label(loop.leave)


def _add_round(body: QuantumCircuit, conversion: Conversion, place: Place, loop: Loop) -> None:
    conversion.walk_inner(body, place, loop=loop)
    if _leaves(body):
        conversion.label(loop.next_round)


def _repeat(
    body: QuantumCircuit, times: int, conversion: Conversion, place: Place, loop: Loop
) -> None:
    """Add the same rows again and again; jumps back need a position each."""
    if times == 0:
        return
    rows, start, phase = conversion.rows, len(conversion.rows), conversion.phase
    jumps_back = len(conversion.back_jumps)
    _add_round(body, conversion, place, loop)
    if len(conversion.back_jumps) == jumps_back:
        rows.extend(rows[start:] * (times - 1))
        conversion.phase = phase + times * (conversion.phase - phase)
        return
    for _ in range(times - 1):
        _add_round(body, conversion, place, loop)


def _takes_index(parameter: Any, body: QuantumCircuit) -> bool:
    if isinstance(parameter, expr.Var):
        return True
    return parameter is not None and parameter in body.parameters


def _with_index(
    body: QuantumCircuit, parameter: Any, index: int, conversion: Conversion, place: Place
) -> QuantumCircuit:
    """The body of a round. A variable gets its value by rows that are added here."""
    if isinstance(parameter, Parameter):
        return body.assign_parameters({parameter: index})
    dests = conversion.flags_of(parameter, place.scope)
    conversion.logic.store(constant_flags(index, len(dests)), dests)
    return body


def _leaves(body: QuantumCircuit) -> bool:
    """Whether a break or a continue of this loop may end a round early."""
    for instruction in body.data:
        operation = instruction.operation
        if isinstance(operation, BreakLoopOp | ContinueLoopOp):
            return True
        inner = () if isinstance(operation, ForLoopOp | WhileLoopOp) else _blocks(operation)
        if any(_leaves(block) for block in inner):
            return True
    return False


def _blocks(operation: Any) -> Sequence[QuantumCircuit]:
    return [block for block in getattr(operation, "blocks", ()) if block is not None]


@add_operation.register
def _(operation: WhileLoopOp, conversion: Conversion, place: Place) -> None:
    flag = conversion.flags.allocate_variable()
    loop = Loop(conversion.new_label(), conversion.new_label(), flag)
    _store_condition(operation, conversion, place, flag)
    start = len(conversion.rows)
    conversion.jump(loop.leave, -flag)
    with conversion.conditional():
        conversion.walk_inner(operation.blocks[0], place, loop=loop)
        conversion.label(loop.next_round)
        _store_condition(operation, conversion, place, flag)
    conversion.back_jumps.append(BackJump(len(conversion.rows), flag, start))
    conversion.label(loop.leave)


def _store_condition(
    operation: WhileLoopOp, conversion: Conversion, place: Place, flag: int
) -> None:
    mark = conversion.flags.mark()
    condition = _condition(operation, conversion, place)
    conversion.logic.store([condition], [flag])
    conversion.flags.release(mark)


@add_operation.register
def _(_operation: BreakLoopOp, conversion: Conversion, place: Place) -> None:
    loop = _innermost(place)
    if loop.repeat_flag:
        conversion.rows.append(clearing_row(loop.repeat_flag))
    conversion.jump(loop.leave)


@add_operation.register
def _(_operation: ContinueLoopOp, conversion: Conversion, place: Place) -> None:
    conversion.jump(_innermost(place).next_round)


def _innermost(place: Place) -> Loop:
    if not place.scope.loops:
        raise ConversionError("there is no loop around it")
    return place.scope.loops[-1]
