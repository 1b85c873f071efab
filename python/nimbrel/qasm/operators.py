"""The operators and functions of OpenQASM 3 on values."""

from __future__ import annotations

import cmath
import math
import operator
from collections.abc import Callable, Mapping, Sequence
from typing import Any, Final

from nimbrel.qasm.flag_logic import FlagLogic, Flags
from nimbrel.qasm.flag_numbers import FALSE, TRUE
from nimbrel.qasm.values import Bits, Duration, Kind, Poison, Value, converted, describe, to_bool
from nimbrel.translation.boolean_logic import constant_flags

CONSTANTS: Final[Mapping[str, float]] = {
    **{"pi": math.pi, "π": math.pi, "tau": math.tau, "τ": math.tau},
    **{"euler": math.e, "ℇ": math.e},
}
"""The constants of the language."""


def _mod(a: Any, b: Any) -> Any:
    if isinstance(a, int) and isinstance(b, int):
        return a - b * _quotient(a, b)
    return math.fmod(a, b)


def _quotient(a: int, b: int) -> int:
    """The quotient of integers, rounded towards 0."""
    magnitude = abs(a) // abs(b)
    return magnitude if (a < 0) == (b < 0) else -magnitude


def _power(a: Any, b: Any) -> Any:
    if isinstance(a, int) and isinstance(b, int) and abs(a) > 1 and b > 4096:
        raise ValueError(f"{a} ** {b} is too large")
    return a**b


_ON_NUMBERS: Final[Mapping[str, Callable[[Any, Any], Any]]] = {
    **{"+": operator.add, "-": operator.sub, "*": operator.mul, "**": _power, "%": _mod},
    **{"==": operator.eq, "!=": operator.ne, "<": operator.lt, "<=": operator.le},
    **{">": operator.gt, ">=": operator.ge},
    **{"&": operator.and_, "|": operator.or_, "^": operator.xor},
    "<<": lambda a, b: a << _shift_count(b),
    ">>": lambda a, b: a >> _shift_count(b),
}

_MOST_SHIFT: Final = 4096


def _shift_count(count: int) -> int:
    if not 0 <= count <= _MOST_SHIFT:
        raise ValueError(f"a shift by {count} is not from 0 to {_MOST_SHIFT}")
    return count


def binary(name: str, a: Any, b: Any, logic: FlagLogic, *, literals: bool = False) -> Value:
    """Apply an operator to two values.

    Args:
        name: The operator as the language writes it.
        a: The left operand.
        b: The right operand.
        logic: Adds the records of an operation on flags.
        literals: Whether both operands are integer literals. Their quotient is exact, as the
            language's own libraries use it; other integers are divided as integers.

    Raises:
        ValueError: If the operator has no meaning for these values.
    """
    if isinstance(a, Poison) or isinstance(b, Poison):
        raise ValueError("a value that depends on a measurement is used in a computation")
    if isinstance(a, Duration) or isinstance(b, Duration):
        return Duration()
    if name in ("&&", "||"):
        return _logical(name, to_bool(a, logic), to_bool(b, logic), logic)
    if isinstance(a, list) or isinstance(b, list):
        raise ValueError(f"the operator {name} takes no array")
    if isinstance(a, Bits) or isinstance(b, Bits):
        return _on_flags(name, a, b, logic)
    if name == "/":
        return _divided(a, b, literals)
    try:
        result: Value = _ON_NUMBERS[name](a, b)
    except (TypeError, ZeroDivisionError, OverflowError) as error:
        raise ValueError(f"{a} {name} {b}: {error}") from None
    return result


def _divided(a: Any, b: Any, literals: bool) -> Value:
    if b == 0:
        raise ValueError(f"{a} / {b}: division by zero")
    if isinstance(a, int) and isinstance(b, int):
        return a / b if literals and a % b else _quotient(a, b)
    result: Value = a / b
    return result


def _logical(name: str, a: bool | Bits, b: bool | Bits, logic: FlagLogic) -> Value:
    x, y = _truth_flag(a), _truth_flag(b)
    return flag_value(logic.both(x, y) if name == "&&" else logic.either(x, y))


def _truth_flag(value: bool | Bits) -> int:
    if isinstance(value, Bits):
        return value.flags[0]
    return TRUE if value else FALSE


def flag_value(flag: int) -> bool | Bits:
    """A flag as a bool, known if the flag is a constant."""
    return flag == TRUE if flag in (TRUE, FALSE) else Bits((flag,), "bool")


def _on_flags(name: str, a: Any, b: Any, logic: FlagLogic) -> Value:
    if name in ("<<", ">>"):
        return _shifted(name, a, b)
    known: list[Any] = [each.number if isinstance(each, Bits) else each for each in (a, b)]
    are_numbers = all(not isinstance(each, Bits) or each.name != "bit" for each in (a, b))
    if are_numbers and None not in known and name not in ("==", "!="):
        return binary(name, known[0], known[1], logic)
    if not all(isinstance(each, Bits | int) for each in (a, b)):
        raise ValueError(f"the operator {name} does not take {describe(a)} and {describe(b)}")
    return _on_widened(name, a, b, logic)


def _on_widened(name: str, a: Bits | int, b: Bits | int, logic: FlagLogic) -> Value:
    if name in ("+", "-") and not (isinstance(a, Bits) and isinstance(b, Bits)):
        # A literal is an int of any width, so the sum has room for every value.
        a, b = (_as_signed(each) for each in (a, b))
    x, y, signed = _same_width(a, b)
    if name in ("&", "|", "^"):
        combine = {"&": logic.both, "|": logic.either, "^": logic.differ}[name]
        like = a if isinstance(a, Bits) else b
        assert isinstance(like, Bits)
        flags = tuple(combine(p, q) for p, q in zip(x, y, strict=True))
        return Bits(flags, like.name, like.is_register)
    if name in ("==", "!="):
        same = logic.equal(x, y)
        return flag_value(same if name == "==" else -same)
    if name in ("<", "<=", ">", ">="):
        return flag_value(_compared(name, x, y, signed, logic))
    if name in ("+", "-"):
        other = y if name == "+" else [-flag for flag in y]
        total = logic.add(x, other, FALSE if name == "+" else TRUE)
        return Bits(tuple(total), "int" if signed else "uint")
    raise ValueError(f"the operator {name} takes no value that depends on a measurement")


def _as_signed(value: Bits | int) -> Bits:
    width = len(value.flags) if isinstance(value, Bits) else value.bit_length()
    return Bits(tuple(_widened(value, width + 2)), "int")


def _compared(name: str, x: Flags, y: Flags, signed: bool, logic: FlagLogic) -> int:
    if signed:
        # With their signs inverted, signed numbers are in the order of unsigned ones.
        x, y = [*x[:-1], -x[-1]], [*y[:-1], -y[-1]]
    if name in (">", "<="):
        x, y = y, x
    less = logic.less(x, y)
    return less if name in ("<", ">") else -less


def _same_width(a: Bits | int, b: Bits | int) -> tuple[Flags, Flags, bool]:
    """The flags of both operands in a common width, and whether they are signed numbers.

    A known number takes the width of the other operand if it fits there, also if only its bits do:
    int[2](c) == 3 compares the bits of c with 11. The language's own examples test syndromes so.
    """
    widths = [len(each.flags) for each in (a, b) if isinstance(each, Bits)]
    width = max(widths)
    for each in (a, b):
        if not isinstance(each, Bits) and not -(1 << width - 1) <= each < 1 << width:
            width = each.bit_length() + 1
    signed = any(isinstance(each, Bits) and each.name == "int" for each in (a, b))
    first, second = (_widened(each, width) for each in (a, b))
    return first, second, signed


def _widened(value: Bits | int, width: int) -> Flags:
    if not isinstance(value, Bits):
        return constant_flags(int(value), width)
    top = value.flags[-1] if value.name == "int" else FALSE
    return [*value.flags, *[top] * (width - len(value.flags))]


def _shifted(name: str, a: Any, b: Any) -> Value:
    count = b.number if isinstance(b, Bits) else b
    if not isinstance(a, Bits) or not isinstance(count, int) or count < 0:
        raise ValueError(f"a shift of {describe(a)} by {describe(b)} is not known before the run")
    width = len(a.flags)
    count = min(count, width)
    fill = (a.flags[-1] if a.name == "int" and name == ">>" else FALSE,) * count
    kept = a.flags[: width - count] if name == "<<" else a.flags[count:]
    return Bits(fill + kept if name == "<<" else kept + fill, a.name, a.is_register)


def unary(name: str, value: Value, logic: FlagLogic) -> Value:
    """Apply an operator to one value.

    Raises:
        ValueError: If the operator has no meaning for it.
    """
    if name == "!":
        truth = to_bool(value, logic)
        return Bits((-truth.flags[0],), "bool") if isinstance(truth, Bits) else not truth
    if isinstance(value, Duration):
        return value
    if name == "~" and isinstance(value, Bits):
        return Bits(tuple(-flag for flag in value.flags), value.name, value.is_register)
    if isinstance(value, Bits) and value.number is not None and value.name != "bit":
        value = value.number
    if name == "-" and isinstance(value, bool | int | float | complex):
        return -value
    if name == "~" and isinstance(value, int):
        return ~value
    raise ValueError(f"the operator {name} does not take {describe(value)}")


def _floor(value: float) -> int:
    return math.floor(value)


_FUNCTIONS: Final[Mapping[str, tuple[int, Callable[..., Any]]]] = {
    **{"arccos": (1, math.acos), "arcsin": (1, math.asin), "arctan": (1, math.atan)},
    **{"cos": (1, math.cos), "sin": (1, math.sin), "tan": (1, math.tan)},
    **{"ceiling": (1, math.ceil), "floor": (1, _floor), "log": (1, math.log)},
    **{"mod": (2, _mod), "pow": (2, _power), "exp": (1, cmath.exp), "sqrt": (1, cmath.sqrt)},
    **{"real": (1, lambda value: complex(value).real), "abs": (1, abs)},
    "imag": (1, lambda value: complex(value).imag),
}
FUNCTIONS: Final = frozenset({*_FUNCTIONS, "popcount", "rotl", "rotr"})
"""The names of the language's own functions."""


def call_function(name: str, arguments: Sequence[Value], logic: FlagLogic) -> Value:
    """Call a function of the language.

    Raises:
        ValueError: If it has no value for these arguments.
    """
    if name in ("popcount", "rotl", "rotr"):
        return _bit_function(name, arguments, logic)
    count, function = _FUNCTIONS[name]
    if len(arguments) != count:
        raise ValueError(f"{name} takes {count} argument(s), not {len(arguments)}")
    numbers: list[Any] = [each.number if isinstance(each, Bits) else each for each in arguments]
    if not all(isinstance(each, bool | int | float | complex) for each in numbers):
        raise ValueError(f"{name} takes numbers that are known before the run")
    try:
        result = function(*numbers)
    except (TypeError, ValueError, ZeroDivisionError, OverflowError) as error:
        raise ValueError(f"{name}: {error}") from None
    is_real = isinstance(result, complex) and result.imag == 0 and complex not in map(type, numbers)
    value: Value = result.real if is_real else result
    return value


def _bit_function(name: str, arguments: Sequence[Value], logic: FlagLogic) -> Value:
    first = arguments[0] if arguments else None
    if not isinstance(first, Bits) or len(arguments) != (1 if name == "popcount" else 2):
        raise ValueError(f"{name} takes a register of bits" + (", a distance" * (name[0] == "r")))
    width = len(first.flags)
    if name == "popcount":
        total = constant_flags(0, width.bit_length())
        for flag in first.flags:
            total = logic.add(total, constant_flags(0, len(total)), flag)
        return converted(Bits(tuple(total), "uint"), Kind("uint", len(total)), logic)
    distance = arguments[1]
    if not isinstance(distance, int):
        raise ValueError(f"{name} takes a distance that is known before the run")
    places = (-distance if name == "rotl" else distance) % width
    return Bits(first.flags[places:] + first.flags[:places], first.name, first.is_register)
