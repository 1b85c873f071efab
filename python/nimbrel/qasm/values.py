"""Types and values of the classical part of an OpenQASM 3 program.

A value that is known while the program is read is a Python number. A value that depends on
measurements is a list of read flags. Registers of bits are lists of flags in any case, of which
some may be constants.
"""

from __future__ import annotations

import math
from dataclasses import dataclass, field
from typing import Final, TypeAlias

from nimbrel.qasm.flag_logic import FlagLogic, Flags, constant_value
from nimbrel.qasm.flag_numbers import FALSE, TRUE
from nimbrel.translation.boolean_logic import constant_flags

DEFAULT_WIDTH: Final = 32
"""Bits of an int or uint without a size."""
MOST_BITS: Final = 1 << 20
"""Longest register of classical bits that is read."""


@dataclass(frozen=True)
class Kind:
    """A classical type.

    Attributes:
        name: "bit", "bool", "int", "uint", "float", "angle", "complex", "duration" or "array".
        width: Bits of the type. None for a type without a size, and for a single bit.
        base: The type of an array's elements.
        shape: The lengths of an array.
    """

    name: str
    width: int | None = None
    base: Kind | None = None
    shape: tuple[int, ...] = ()

    def __str__(self) -> str:
        """The type as the language writes it."""
        if self.base is not None:
            return f"array[{self.base}, {', '.join(map(str, self.shape))}]"
        return self.name if self.width is None else f"{self.name}[{self.width}]"

    @property
    def num_flags(self) -> int:
        """Flags that hold a value of this type."""
        if self.name in ("int", "uint"):
            return DEFAULT_WIDTH if self.width is None else self.width
        return 1 if self.width is None else self.width


@dataclass(frozen=True)
class Bits:
    """A value made of flags.

    Attributes:
        flags: The flags, the lowest bit first.
        name: "bit", "bool", "int" or "uint".
        is_register: Whether it is a register of bits, and not a single bit.
    """

    flags: tuple[int, ...]
    name: str = "bit"
    is_register: bool = False

    @property
    def number(self) -> int | None:
        """The value if it is known."""
        value = constant_value(self.flags)
        if value is not None and self.name == "int" and self.flags[-1] == TRUE:
            return value - (1 << len(self.flags))
        return value


class Duration:
    """A length of time. Time has no effect here, so its number is not computed."""


class Poison:
    """The value of a variable that was set in one of two branches, and has no flags."""


Value: TypeAlias = "bool | int | float | complex | Bits | list[Value] | Duration | Poison"


@dataclass
class Variable:
    """A classical variable.

    Attributes:
        name: Its name.
        kind: Its type.
        value: What it holds now.
        is_constant: Whether it may not be assigned.
        flags: Where a variable of bits is stored; empty for other types.
        stored: The positions of `flags` that a record has stored.
        set_positions: The positions of a variable of bits that have been assigned.
        depth: The subroutine calls around its declaration.
    """

    name: str
    kind: Kind
    value: Value
    is_constant: bool = False
    flags: Flags = field(default_factory=list)
    stored: set[int] = field(default_factory=set)
    set_positions: set[int] = field(default_factory=set)
    depth: int = 0


def converted(value: Value, kind: Kind, logic: FlagLogic) -> Value:
    """Convert a value to a type, as a cast or an assignment does.

    Raises:
        ValueError: If there is no such conversion.
    """
    if isinstance(value, Poison):
        return value
    if kind.name in ("duration", "stretch"):
        return Duration()
    if kind.name == "bit":
        return _to_bits(value, kind)
    if kind.name == "bool":
        return to_bool(value, logic)
    if kind.name in ("int", "uint"):
        return _to_integer(value, kind)
    return _to_number(value, kind)


def _unconvertible(value: Value, kind: Kind) -> ValueError:
    return ValueError(f"{describe(value)} cannot become a value of type {kind}")


def describe(value: Value) -> str:
    """A value in words, for messages."""
    if isinstance(value, Bits):
        return f"a value of type {value.name}[{len(value.flags)}]"
    if isinstance(value, list):
        return "an array"
    if isinstance(value, Duration):
        return "a duration"
    return f"the value {value}"


def _to_bits(value: Value, kind: Kind) -> Bits:
    is_register = kind.width is not None
    if isinstance(value, bool | int):
        width = kind.num_flags
        if is_register or value in (0, 1):
            return Bits(tuple(constant_flags(int(value), width)), "bit", is_register)
    if isinstance(value, Bits) and len(value.flags) == kind.num_flags:
        return Bits(value.flags, "bit", is_register)
    raise _unconvertible(value, kind)


def to_bool(value: Value, logic: FlagLogic) -> bool | Bits:
    """The truth of a value.

    Raises:
        ValueError: If it has none.
    """
    if isinstance(value, Bits):
        flag = logic.any_of(value.flags)
        return flag == TRUE if flag in (TRUE, FALSE) else Bits((flag,), "bool")
    if isinstance(value, bool | int | float):
        return bool(value)
    raise _unconvertible(value, Kind("bool"))


def _to_integer(value: Value, kind: Kind) -> Value:
    width = kind.num_flags
    if isinstance(value, Bits):
        if value.name != "bit" and value.number is not None:
            return wrapped(value.number, kind)
        top = value.flags[-1] if value.name == "int" else FALSE
        flags = value.flags[:width] + (top,) * (width - len(value.flags))
        return Bits(flags, kind.name)
    if isinstance(value, bool | int):
        return wrapped(int(value), kind)
    if isinstance(value, float) and math.isfinite(value):
        return wrapped(int(value), kind)
    raise _unconvertible(value, kind)


def wrapped(value: int, kind: Kind) -> int:
    """An integer modulo 2**width, within the range of its type."""
    if kind.width is None:
        return value
    value %= 1 << kind.width
    return value - (1 << kind.width) if kind.name == "int" and value >> kind.width - 1 else value


def _to_number(value: Value, kind: Kind) -> Value:
    if isinstance(value, Bits) and value.number is not None:
        value = value.number
    if isinstance(value, Bits):
        raise ValueError(
            f"{describe(value)} depends on a measurement, and a value of type {kind} cannot"
        )
    if kind.name == "complex" and isinstance(value, bool | int | float | complex):
        return complex(value)
    if kind.name in ("float", "angle") and isinstance(value, bool | int | float):
        return float(value) if kind.name == "float" else _angle(float(value), kind.width)
    raise _unconvertible(value, kind)


def _angle(value: float, width: int | None) -> float:
    if not math.isfinite(value):
        raise ValueError(f"an angle cannot be {value}")
    # An angle of n bits is a multiple of 2 pi / 2**n, below 2 pi.
    if width is None or width > 52:
        return math.fmod(value, 2 * math.pi) % (2 * math.pi)
    steps = 1 << width
    return round(value / (2 * math.pi) * steps) % steps * (2 * math.pi / steps)
