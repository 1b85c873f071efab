"""Conditions and loops of OpenQASM 3.

A loop is repeated while the program is read, unless its condition depends on a measurement. Of an
if statement with such a condition, both branches become records.
"""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from typing import Any, Final

from openqasm3 import ast

from nimbrel.qasm.branches import LeavesBranchError, choose, kept_value
from nimbrel.qasm.context import Context
from nimbrel.qasm.expressions import evaluate, kind_of, known_integer, whole_range
from nimbrel.qasm.flag_numbers import FALSE, TRUE
from nimbrel.qasm.measured_loops import break_measured, continue_measured, repeat_while
from nimbrel.qasm.operators import binary
from nimbrel.qasm.values import Bits, Poison, Value, Variable, converted, to_bool
from nimbrel.qasm.variables import store_constants

_MOST_REPETITIONS: Final = 1_000_000


class BreaksLoopError(Exception):
    """A loop ends here."""


class ContinuesLoopError(Exception):
    """A repetition of a loop ends here."""


def branch(context: Context, node: ast.BranchingStatement) -> None:
    """Carry out an if statement."""
    flag = _condition(context, node.condition)
    choose(
        context,
        node,
        flag,
        lambda: _block(context, node.if_block),
        lambda: _block(context, node.else_block),
    )


def _condition(context: Context, node: Any) -> int:
    value = evaluate(context, node)
    if isinstance(value, Poison):
        raise context.error(node, "the condition has no value")
    truth = context.at(node, to_bool, value, context.logic)
    if isinstance(truth, Bits):
        return truth.flags[0]
    return TRUE if truth else FALSE


def _block(context: Context, statements: Sequence[Any]) -> None:
    with context.scopes.block():
        context.run_block(statements)


def switch(context: Context, node: ast.SwitchStatement) -> None:
    """Carry out a switch statement."""
    _cases(context, node, evaluate(context, node.target), list(node.cases))


def _cases(context: Context, node: Any, value: Value, cases: list[Any]) -> None:
    if not cases:
        if node.default is not None:
            _block(context, node.default.statements)
        return
    (labels, body), rest = cases[0], cases[1:]
    hits = [
        context.at(each, binary, "==", value, evaluate(context, each), context.logic)
        for each in labels
    ]
    flag = context.logic.any_of(
        [hit.flags[0] if isinstance(hit, Bits) else TRUE if hit else FALSE for hit in hits]
    )
    choose(
        context,
        node,
        flag,
        lambda: _block(context, body.statements),
        lambda: _cases(context, node, value, rest),
    )


def for_loop(context: Context, node: ast.ForInLoop) -> None:
    """Carry out a for loop over numbers that are known."""
    kind = kind_of(context, node.type)
    name = node.identifier.name
    for value in _elements(context, node):
        made = context.at(node, converted, value, kind, context.logic)
        with context.scopes.block():
            context.scopes.add(name, Variable(name, kind, made, depth=context.scopes.depth))
            if not _repeats(context, node.block):
                break


def _repeats(context: Context, body: Sequence[Any]) -> bool:
    """Carry out a loop's body once; returns whether the loop goes on."""
    outer = context.loop, context.loop_branch_depth
    context.loop, context.loop_branch_depth = None, context.branch_depth
    try:
        _block(context, body)
    except BreaksLoopError:
        return False
    except ContinuesLoopError:
        return True
    finally:
        context.loop, context.loop_branch_depth = outer
    return True


def _elements(context: Context, node: ast.ForInLoop) -> Iterable[Value]:
    over = node.set_declaration
    if isinstance(over, ast.RangeDefinition):
        if over.start is None or over.end is None:
            raise context.error(node, "the range of a for loop needs a start and an end")
        step = 1 if over.step is None else known_integer(context, over.step, "a step")
        start = known_integer(context, over.start, "the start of a loop")
        end = known_integer(context, over.end, "the end of a loop")
        return whole_range(context, node, start, end, step)
    if isinstance(over, ast.DiscreteSet):
        return [evaluate(context, each) for each in over.values]
    value = evaluate(context, over)
    if isinstance(value, list):
        return value
    if isinstance(value, Bits):
        return [Bits((flag,)) for flag in value.flags]
    raise context.error(node, "a for loop runs over a range, a set, an array or a register")


def while_loop(context: Context, node: ast.WhileLoop) -> None:
    """Carry out a while loop; from the first condition that is measured on, by a jump back.

    Raises:
        QasmError: If a statement is refused, or the loop does not end.
    """
    for number in range(_MOST_REPETITIONS):
        flag = _condition(context, node.while_condition)
        if flag == FALSE:
            return
        # At powers of two, so that the comparisons take no time.
        before = None if number & (number - 1) else _variable_values(context)
        if flag != TRUE:
            repeat_while(
                context,
                node,
                flag,
                lambda: _condition(context, node.while_condition),
                lambda: _block(context, node.block),
            )
            return
        if not _repeats(context, node.block):
            return
        if before is not None and before == _variable_values(context):
            raise context.error(node, "the while loop does not end: it changes no variable")
    raise context.error(node, f"the while loop has more than {_MOST_REPETITIONS} repetitions")


def _variable_values(context: Context) -> list[Value]:
    return [kept_value(variable.value) for variable in context.scopes.variables()]


def break_(context: Context, node: ast.BreakStatement) -> None:
    """End a loop."""
    break_measured(context)
    _refuse_in_branch(context, node, "break")
    raise BreaksLoopError


def continue_(context: Context, node: ast.ContinueStatement) -> None:
    """End a repetition of a loop."""
    continue_measured(context)
    _refuse_in_branch(context, node, "continue")
    raise ContinuesLoopError


def _refuse_in_branch(context: Context, node: Any, name: str) -> None:
    if context.branch_depth > context.loop_branch_depth:
        raise context.error(node, f"a {name} under a condition that depends on a measurement")


def end(context: Context, _node: ast.EndStatement) -> None:
    """End the program."""
    if not context.branch_depth and not context.frames:
        raise LeavesBranchError
    if context.end_label is None:
        context.end_label = context.records.new_label()
    store_constants(context)
    context.leave_loops()
    context.records.jump(context.end_label)
    raise LeavesBranchError
