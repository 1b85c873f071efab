"""Expressions of OpenQASM 3 as values."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Any, Final

from openqasm3 import ast

from nimbrel.qasm.context import Context
from nimbrel.qasm.operators import CONSTANTS, FUNCTIONS, binary, call_function, unary
from nimbrel.qasm.scope import Extern, Subroutine
from nimbrel.qasm.values import (
    Bits,
    Duration,
    Kind,
    Poison,
    Value,
    Variable,
    converted,
    describe,
)
from nimbrel.translation.boolean_logic import constant_flags

Evaluate = Callable[[Context, Any], Value]

_KIND_NAMES: Final = {
    ast.BitType: "bit",
    ast.BoolType: "bool",
    ast.IntType: "int",
    ast.UintType: "uint",
    ast.FloatType: "float",
    ast.AngleType: "angle",
    ast.ComplexType: "complex",
    ast.DurationType: "duration",
    ast.StretchType: "stretch",
}
_MOST_ELEMENTS: Final = 1 << 20


def evaluate(context: Context, node: Any) -> Value:
    """The value of an expression.

    Raises:
        QasmError: If it has none.
    """
    rule = _RULES.get(type(node))
    if rule is None:
        raise context.error(node, f"an expression of the kind {type(node).__name__} is not read")
    return context.at(node, rule, context, node)


def known_integer(context: Context, node: Any, what: str) -> int:
    """The value of an expression that must be a known integer.

    Raises:
        QasmError: If it is none.
    """
    value = evaluate(context, node)
    if isinstance(value, Bits) and value.number is not None:
        return value.number
    if isinstance(value, float) and value.is_integer():
        return int(value)
    if not isinstance(value, int):
        raise context.error(node, f"{what} must be an integer that is known before the run")
    return value


def known_number(context: Context, node: Any, what: str) -> float:
    """The value of an expression that must be a known real number.

    Raises:
        QasmError: If it is none.
    """
    value = evaluate(context, node)
    if isinstance(value, Bits) and value.number is not None:
        return float(value.number)
    if isinstance(value, Bits | Poison):
        raise context.error(node, f"{what} depends on a measurement, so it is not known")
    if not isinstance(value, bool | int | float):
        raise context.error(node, f"{what} must be a real number, not {describe(value)}")
    return float(value)


def kind_of(context: Context, node: Any) -> Kind:
    """The type that a type expression names.

    Raises:
        QasmError: If it is not read.
    """
    if isinstance(node, ast.ArrayType):
        shape = tuple(known_integer(context, each, "an array's length") for each in node.dimensions)
        total = 1
        for length in shape:
            total *= length
        if min(shape) < 0 or total > _MOST_ELEMENTS:
            raise context.error(node, f"an array cannot have the shape {list(shape)}")
        return Kind("array", base=kind_of(context, node.base_type), shape=shape)
    name = _KIND_NAMES.get(type(node))
    if name is None:
        raise context.error(node, f"the type {type(node).__name__} is not read")
    size = getattr(node, "size", None)
    if size is None or name == "float":
        return Kind(name)
    width = known_integer(context, size, "a type's size")
    if not 1 <= width <= _MOST_ELEMENTS:
        raise context.error(size, f"a type cannot have {width} bits")
    return Kind(name, width)


def _identifier(context: Context, node: ast.Identifier) -> Value:
    entry = context.scopes.find(node.name)
    if entry is None and node.name in CONSTANTS:
        return CONSTANTS[node.name]
    if isinstance(entry, Variable):
        if context.scopes.is_from_outside(node.name) and not entry.is_constant:
            raise context.error(
                node, f"gates and subroutines do not see '{node.name}', a variable that is no const"
            )
        if isinstance(entry.value, Poison):
            raise context.error(
                node,
                f"'{node.name}' of type {entry.kind} was assigned under a condition that depends "
                "on a measurement",
            )
        return entry.value
    if entry is None:
        raise context.error(node, f"'{node.name}' is not defined")
    raise context.error(node, f"'{node.name}' is no classical value")


def _bitstring(_context: Context, node: ast.BitstringLiteral) -> Value:
    return Bits(tuple(constant_flags(node.value, node.width)), "bit", True)


def _array_literal(context: Context, node: ast.ArrayLiteral) -> Value:
    return [evaluate(context, each) for each in node.values]


def _unary(context: Context, node: ast.UnaryExpression) -> Value:
    return unary(node.op.name, evaluate(context, node.expression), context.logic)


def _binary(context: Context, node: ast.BinaryExpression) -> Value:
    left, right = evaluate(context, node.lhs), evaluate(context, node.rhs)
    literals = _is_literal(node.lhs) and _is_literal(node.rhs)
    return binary(node.op.name, left, right, context.logic, literals=literals)


def _is_literal(node: Any) -> bool:
    if isinstance(node, ast.UnaryExpression):
        return _is_literal(node.expression)
    if isinstance(node, ast.BinaryExpression):
        return _is_literal(node.lhs) and _is_literal(node.rhs)
    return isinstance(node, ast.IntegerLiteral)


def _cast(context: Context, node: ast.Cast) -> Value:
    kind = kind_of(context, node.type)
    value = evaluate(context, node.argument)
    if kind.width is None and isinstance(value, Bits) and kind.name in ("int", "uint", "bit"):
        # A cast to a type without a size keeps the bits that there are.
        kind = Kind(kind.name, len(value.flags) if kind.name != "bit" else None)
    return converted(value, kind, context.logic)


def _call(context: Context, node: ast.FunctionCall) -> Value:
    name = node.name.name
    entry = context.scopes.find(name)
    if isinstance(entry, Subroutine):
        result = context.call_subroutine(entry, node)
        if result is None:
            raise context.error(node, f"'{name}' returns nothing")
        return result
    if isinstance(entry, Extern):
        raise context.error(node, f"the extern function '{name}' has no body that could run")
    if entry is not None or name not in FUNCTIONS:
        raise context.error(node, f"'{name}' is no function")
    return call_function(name, [evaluate(context, each) for each in node.arguments], context.logic)


def _measurement(context: Context, node: ast.QuantumMeasurement) -> Value:
    qubits = context.qubits(node.qubit)
    flags = context.records.new_flags(len(qubits.numbers))
    context.measure(node, qubits.numbers, flags)
    return Bits(tuple(flags), "bit", qubits.is_register)


def _index(context: Context, node: ast.IndexExpression) -> Value:
    return indexed(context, evaluate(context, node.collection), [node.index])


def indexed(context: Context, value: Value, groups: Sequence[Any]) -> Value:
    """A value with the index operators of an expression applied.

    Raises:
        QasmError: If an index is outside the value.
    """
    for group in groups:
        entries = [group] if isinstance(group, ast.DiscreteSet) else group
        for entry in entries:
            value = _one_index(context, value, entry)
    return value


def _one_index(context: Context, value: Value, entry: Any) -> Value:
    if isinstance(value, bool) or not isinstance(value, Bits | list | int):
        raise context.error(entry, f"{describe(value)} has no elements")
    if isinstance(value, int):
        # An integer's bits can be read, those of a negative one in two's complement.
        place = known_integer(context, entry, "an index")
        return Bits(tuple(constant_flags(value >> max(place, 0), 1)), "bit")
    items: Any = value.flags if isinstance(value, Bits) else value
    chosen = positions(context, entry, len(items))
    if isinstance(chosen, int):
        return Bits((items[chosen],)) if isinstance(value, Bits) else items[chosen]
    picked = [items[place] for place in chosen]
    return Bits(tuple(picked), value.name, True) if isinstance(value, Bits) else picked


def positions(context: Context, entry: Any, length: int) -> int | list[int]:
    """The positions that an index, a range or a set of indices names.

    Raises:
        QasmError: If one lies outside.
    """
    if isinstance(entry, ast.RangeDefinition):
        chosen = _range(context, entry, length)
    elif isinstance(entry, ast.DiscreteSet):
        chosen = [known_integer(context, each, "an index") for each in entry.values]
    else:
        return _position(context, entry, known_integer(context, entry, "an index"), length)
    return [_position(context, entry, each, length) for each in chosen]


def _position(context: Context, node: Any, place: int, length: int) -> int:
    if not -length <= place < length:
        raise context.error(node, f"index {place} lies outside a register of {length}")
    return place % length


def _range(context: Context, node: ast.RangeDefinition, length: int) -> list[int]:
    step = 1 if node.step is None else known_integer(context, node.step, "a step")
    ends = (0, length - 1) if step > 0 else (length - 1, 0)
    start, end = (
        default if each is None else known_integer(context, each, "the end of a range")
        for each, default in zip((node.start, node.end), ends, strict=True)
    )
    start, end = (each + length if each < 0 else each for each in (start, end))
    return whole_range(context, node, start, end, step)


def whole_range(context: Context, node: Any, start: int, end: int, step: int) -> list[int]:
    """The integers from `start` to `end`, both included.

    Raises:
        QasmError: If the step is 0 or there are too many.
    """
    if step == 0:
        raise context.error(node, "a range with step 0 has no end")
    numbers = range(start, end + (1 if step > 0 else -1), step)
    if len(numbers) > _MOST_ELEMENTS:
        raise context.error(node, f"a range of {len(numbers)} numbers is too long")
    return list(numbers)


def _size_of(context: Context, node: ast.SizeOf) -> Value:
    value = evaluate(context, node.target)
    for _ in range(0 if node.index is None else known_integer(context, node.index, "an index")):
        value = value[0] if isinstance(value, list) and value else value
    if isinstance(value, list):
        return len(value)
    raise context.error(node, f"{describe(value)} has no size")


def _duration(_context: Context, _node: Any) -> Value:
    return Duration()


_RULES: Final[dict[type, Evaluate]] = {
    ast.Identifier: _identifier,
    ast.IntegerLiteral: lambda _, node: int(node.value),
    ast.FloatLiteral: lambda _, node: float(node.value),
    ast.ImaginaryLiteral: lambda _, node: complex(0, node.value),
    ast.BooleanLiteral: lambda _, node: bool(node.value),
    ast.BitstringLiteral: _bitstring,
    ast.ArrayLiteral: _array_literal,
    ast.UnaryExpression: _unary,
    ast.BinaryExpression: _binary,
    ast.Cast: _cast,
    ast.FunctionCall: _call,
    ast.QuantumMeasurement: _measurement,
    ast.IndexExpression: _index,
    ast.SizeOf: _size_of,
    ast.DurationLiteral: _duration,
    ast.DurationOf: _duration,
}
