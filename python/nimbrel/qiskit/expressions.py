"""Classical expressions, computed by the engine's NAND of two read flags.

The value of an expression is a list of literals (see `flags`), the least significant bit first; a
Boolean has one. Constants are folded and negations are free, so a comparison of a register with a
number takes one record less than it has bits. Sums and products are those of the textbook circuits
of adders; numbers wrap modulo 2**width as in Qiskit.
"""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Any, Final, TypeAlias

from qiskit.circuit.classical import expr, types

from nimbrel.qiskit.errors import ConversionError
from nimbrel.qiskit.flags import FALSE, TRUE, Flags, nand_row
from nimbrel.qiskit.rows import Rows
from nimbrel.translation.boolean_logic import BooleanLogic, constant_flags

Literals: TypeAlias = list[int]


class Logic(BooleanLogic):
    """Boolean functions of literals. Each adds the rows that compute it.

    Args:
        rows: The list to which the rows are added.
        flags: Gives flags for intermediate results.
    """

    def __init__(self, rows: Rows, flags: Flags) -> None:
        self._rows = rows
        self._flags = flags

    def _store_and(self, a: int, b: int) -> int:
        result = self._flags.allocate()
        self._rows.append(nand_row(a, b, -result))
        return result

    def choice(self, condition: int, a: int, b: int) -> int:
        """`a` if the condition is true, else `b`."""
        if a == b:
            return a
        return self.either(self.both(condition, a), self.both(-condition, b))

    def equal(self, a: Literals, b: Literals) -> int:
        """A == b."""
        return self.all_of(-self.differ(x, y) for x, y in zip(a, b, strict=True))

    def less(self, a: Literals, b: Literals) -> int:
        """A < b."""
        result = FALSE
        for x, y in zip(a, b, strict=True):
            result = self.choice(self.differ(x, y), y, result)
        return result

    def product(self, a: Literals, b: Literals) -> Literals:
        """A * b modulo 2**width."""
        result = constant_flags(0, len(a))
        for place, bit in enumerate(b):
            shifted = [FALSE] * place + a[: len(a) - place]
            result = self.add(result, [self.both(bit, each) for each in shifted])
        return result

    def shifted(
        self, a: Literals, places: Literals, step: Callable[[Literals, int], Literals]
    ) -> Literals:
        """Shift by a number of places that may be known at run time only."""
        for position, bit in enumerate(places):
            moved = step(a, min(1 << position, len(a)))
            a = [self.choice(bit, y, x) for x, y in zip(a, moved, strict=True)]
        return a

    def replaced(self, word: Literals, index: Literals, bit: int) -> Literals:
        """`word` with another bit at an index."""
        return [
            self.choice(self.equal(index, constant_flags(place, len(index))), bit, old)
            if place < 1 << len(index)
            else old
            for place, old in enumerate(word)
        ]

    def store(self, values: Literals, dests: Sequence[int]) -> None:
        """Copy values to flags. A value may be a flag that is stored here."""
        values = [self._saved(value) if abs(value) in dests else value for value in values]
        for value, dest in zip(values, dests, strict=True):
            self._rows.append(nand_row(value, value, -dest))

    def _saved(self, value: int) -> int:
        result = self._flags.allocate()
        self._rows.append(nand_row(value, value, -result))
        return result


def _left(a: Literals, places: int) -> Literals:
    return [FALSE] * places + a[: len(a) - places]


def _right(a: Literals, places: int) -> Literals:
    return a[places:] + [FALSE] * places


_BITWISE: Final[dict[Any, Callable[[Logic, int, int], int]]] = {
    expr.Binary.Op.BIT_AND: Logic.both,
    expr.Binary.Op.BIT_OR: Logic.either,
    expr.Binary.Op.BIT_XOR: Logic.differ,
    expr.Binary.Op.LOGIC_AND: Logic.both,
    expr.Binary.Op.LOGIC_OR: Logic.either,
}
_COMPARISONS: Final[dict[Any, Callable[[Logic, Literals, Literals], int]]] = {
    expr.Binary.Op.EQUAL: Logic.equal,
    expr.Binary.Op.NOT_EQUAL: lambda logic, a, b: -logic.equal(a, b),
    expr.Binary.Op.LESS: Logic.less,
    expr.Binary.Op.LESS_EQUAL: lambda logic, a, b: -logic.less(b, a),
    expr.Binary.Op.GREATER: lambda logic, a, b: logic.less(b, a),
    expr.Binary.Op.GREATER_EQUAL: lambda logic, a, b: -logic.less(a, b),
}
_ARITHMETIC: Final[dict[Any, Callable[[Logic, Literals, Literals], Literals]]] = {
    expr.Binary.Op.ADD: Logic.add,
    expr.Binary.Op.SUB: lambda logic, a, b: logic.add(a, [-bit for bit in b], TRUE),
    expr.Binary.Op.MUL: Logic.product,
    expr.Binary.Op.SHIFT_LEFT: lambda logic, a, b: logic.shifted(a, b, _left),
    expr.Binary.Op.SHIFT_RIGHT: lambda logic, a, b: logic.shifted(a, b, _right),
}


def width_of(kind: types.Type) -> int:
    """The number of bits of a type.

    Raises:
        ConversionError: If its values are neither Booleans nor unsigned integers.
    """
    if isinstance(kind, types.Bool):
        return 1
    if isinstance(kind, types.Uint):
        return int(kind.width)
    raise ConversionError(f"read flags hold no values of the type {kind}")


class Expressions:
    """Computes expressions.

    Args:
        logic: Adds the rows.
        read: Returns the flags of a classical bit, a register or a variable.
    """

    def __init__(self, logic: Logic, read: Callable[[expr.Var], Literals]) -> None:
        self._logic = logic
        self._read = read

    def value(self, node: expr.Expr) -> Literals:
        """Compute an expression.

        Raises:
            ConversionError: If read flags cannot hold or compute a part of it.
        """
        if isinstance(node, expr.Value):
            return constant_flags(int(node.value), width_of(node.type))
        if isinstance(node, expr.Var):
            return self._read(node)
        if isinstance(node, expr.Cast):
            return self._cast(self.value(node.operand), node.type)
        if isinstance(node, expr.Unary):
            return self._unary(node)
        if isinstance(node, expr.Binary):
            return self._binary(node)
        if isinstance(node, expr.Index):
            return self._index(self.value(node.target), self.value(node.index))
        raise ConversionError(f"no flags compute {type(node).__name__} expressions")

    def _cast(self, operand: Literals, kind: types.Type) -> Literals:
        if isinstance(kind, types.Bool):
            return [self._logic.any_of(operand)]
        width = width_of(kind)
        return operand[:width] + [FALSE] * (width - len(operand))

    def _unary(self, node: expr.Unary) -> Literals:
        operand = self.value(node.operand)
        negated = [-bit for bit in operand]
        if node.op is expr.Unary.Op.NEGATE:
            return self._logic.add(negated, constant_flags(0, len(operand)), TRUE)
        return negated

    def _binary(self, node: expr.Binary) -> Literals:
        if node.op in _ARITHMETIC:
            width_of(node.type)
            return _ARITHMETIC[node.op](self._logic, self.value(node.left), self.value(node.right))
        if node.op not in _BITWISE and node.op not in _COMPARISONS:
            raise ConversionError(f"no flags compute the operation {node.op.name}")
        left, right = self.value(node.left), self.value(node.right)
        if node.op in _COMPARISONS:
            return [_COMPARISONS[node.op](self._logic, left, right)]
        combine = _BITWISE[node.op]
        return [combine(self._logic, a, b) for a, b in zip(left, right, strict=True)]

    def _index(self, target: Literals, index: Literals) -> Literals:
        chosen = (
            self._logic.both(bit, self._logic.equal(index, constant_flags(place, len(index))))
            for place, bit in enumerate(target)
            if place < 1 << len(index)
        )
        return [self._logic.any_of(chosen)]
