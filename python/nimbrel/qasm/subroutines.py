"""Subroutines of OpenQASM 3. A call carries out the body in place."""

from __future__ import annotations

from typing import Any, Final

from openqasm3 import ast

from nimbrel.qasm.branches import LeavesBranchError
from nimbrel.qasm.context import Context
from nimbrel.qasm.expressions import evaluate, kind_of, known_integer
from nimbrel.qasm.operands import qubits_of
from nimbrel.qasm.scope import Frame, Qubits, Subroutine
from nimbrel.qasm.values import Bits, Kind, Value, Variable, converted
from nimbrel.qasm.variables import new_variable, set_value

_MOST_NESTED: Final = 100


class ReturnsError(Exception):
    """The body of a subroutine has ended by a return."""


def call(context: Context, subroutine: Subroutine, node: ast.FunctionCall) -> Value | None:
    """Carry out a call; returns its result, or None for a subroutine without one.

    Raises:
        QasmError: If the arguments do not fit, or a statement is refused.
    """
    definition = subroutine.node
    if len(definition.arguments) != len(node.arguments):
        raise context.error(
            node,
            f"'{definition.name.name}' needs {len(definition.arguments)} argument(s), "
            f"not {len(node.arguments)}",
        )
    if len(context.frames) >= _MOST_NESTED:
        raise context.error(node, f"more than {_MOST_NESTED} calls of subroutines are nested")
    pairs = zip(definition.arguments, node.arguments, strict=True)
    bound = [_bound(context, formal, given) for formal, given in pairs]
    result = definition.return_type
    frame = Frame(None if result is None else kind_of(context, result))
    outer_depth, context.branch_depth = context.branch_depth, 0
    context.frames.append(frame)
    with context.scopes.frame(), context.in_file(subroutine.file):
        for formal, value in zip(definition.arguments, bound, strict=True):
            _declare(context, formal, value)
        _run_body(context, definition, frame)
    context.frames.pop()
    context.branch_depth = outer_depth
    return frame.value


def _run_body(context: Context, definition: ast.SubroutineDefinition, frame: Frame) -> None:
    ended = False
    try:
        context.run_block(definition.body)
    except ReturnsError:
        ended = True
    except LeavesBranchError:
        pass
    if frame.flags is not None and frame.kind is not None:
        if ended:
            _store_result(context, frame)
        frame.value = Bits(tuple(frame.flags), frame.kind.name, frame.kind.width is not None)
    if frame.label is not None:
        context.records.label(frame.label)
    if frame.kind is not None and frame.value is None:
        raise context.error(definition, f"'{definition.name.name}' ends without a return")


def return_(context: Context, node: ast.ReturnStatement) -> None:
    """Carry out a return.

    Raises:
        QasmError: Outside a subroutine, or if the value does not fit.
    """
    if not context.frames:
        raise context.error(node, "a return outside a subroutine")
    frame = context.frames[-1]
    if (node.expression is None) != (frame.kind is None):
        raise context.error(node, "the return does not fit the subroutine's type")
    if frame.kind is not None:
        value = evaluate(context, node.expression)
        frame.value = context.at(node, converted, value, frame.kind, context.logic)
    if not context.branch_depth:
        raise ReturnsError
    _return_from_branch(context, node, frame)


def _return_from_branch(context: Context, node: ast.ReturnStatement, frame: Frame) -> None:
    if frame.label is None:
        frame.label = context.records.new_label()
    if frame.kind is not None:
        if frame.kind.name not in ("bit", "bool", "int", "uint"):
            raise context.error(
                node,
                f"a value of type {frame.kind} is returned under a condition that depends on a "
                "measurement",
            )
        if frame.flags is None:
            frame.flags = context.records.new_flags(frame.kind.num_flags)
        _store_result(context, frame)
    context.leave_loops()
    context.records.jump(frame.label)
    raise LeavesBranchError


def _store_result(context: Context, frame: Frame) -> None:
    assert frame.flags is not None
    assert frame.kind is not None
    kind = Kind("bit", frame.kind.num_flags)
    made = converted(frame.value if frame.value is not None else 0, kind, context.logic)
    assert isinstance(made, Bits)
    for value, home in zip(made.flags, frame.flags, strict=True):
        context.records.store(value, home)


def _bound(context: Context, formal: Any, given: Any) -> Qubits | Value:
    if not isinstance(formal, ast.QuantumArgument):
        return evaluate(context, given)
    qubits = qubits_of(context, given)
    size = 1 if formal.size is None else known_integer(context, formal.size, "a register's size")
    if len(qubits.numbers) != size:
        raise context.error(
            given, f"'{formal.name.name}' needs {size} qubit(s), not {len(qubits.numbers)}"
        )
    return Qubits(qubits.numbers, formal.size is not None)


def _declare(context: Context, formal: Any, value: Qubits | Value) -> None:
    name = formal.name.name
    if isinstance(value, Qubits):
        context.scopes.add(name, value)
    elif isinstance(formal.type, ast.ArrayReferenceType):
        if not isinstance(value, list):
            raise context.error(formal, f"'{name}' must be an array")
        base = kind_of(context, formal.type.base_type)
        is_constant = formal.access == ast.AccessControl.readonly
        kind = Kind("array", base=base, shape=_shape(value))
        context.scopes.add(
            name, Variable(name, kind, value, is_constant, depth=context.scopes.depth)
        )
    else:
        variable = new_variable(context, formal, name, kind_of(context, formal.type))
        set_value(context, formal, variable, value)


def _shape(value: Value) -> tuple[int, ...]:
    return (len(value), *_shape(value[0])) if isinstance(value, list) and value else ()
