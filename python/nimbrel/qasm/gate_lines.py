"""Lines that hold one plain call of a gate, such as `rz(0.25) q[3];`.

A long program is mostly such lines. The reference parser takes a quarter of a millisecond for each,
so they are found by a pattern and the parser gets the rest of the text. The pattern takes nothing
that the parser would read differently: numbers or fractions of pi as angles, and elements of
registers with literal indices, on a line of their own between two statements at the outermost
level.
"""

from __future__ import annotations

import re
from math import pi
from typing import TYPE_CHECKING, Final, NamedTuple

from nimbrel.qasm.scope import DefinedGate, Qubits
from nimbrel.qasm.standard_gates import StandardGate

if TYPE_CHECKING:
    from nimbrel.qasm.context import Context

_OPERAND: Final = r"[A-Za-z_]\w*\[\d+\]"
_LINE: Final = re.compile(
    rf"[ \t]*([A-Za-z_]\w*)(?:\(([^()]*)\))?[ \t]+({_OPERAND}(?:[ \t]*,[ \t]*{_OPERAND})*)[ \t]*;"
    r"[ \t]*\Z",
    re.ASCII,
)
_ANGLE: Final = re.compile(
    r"[ \t]*(-?)(?:(\d+\.\d*(?:[eE][+-]?\d+)?|\.\d+(?:[eE][+-]?\d+)?|\d+)"
    r"|(?:(\d+)[ \t]*\*[ \t]*)?(pi)(?:[ \t]*/[ \t]*(\d+))?)[ \t]*\Z",
    re.ASCII,
)
_ELEMENT: Final = re.compile(r"([A-Za-z_]\w*)\[(\d+)\]", re.ASCII)
_NO_GATES: Final = frozenset(
    {
        *("reset", "barrier", "measure", "return", "qreg", "creg", "gphase", "nop", "opaque"),
        *("input", "output", "const", "extern", "pragma", "let", "include", "OPENQASM", "delay"),
    }
)


class Place(NamedTuple):
    """Where a statement begins and ends, as the parser tells it."""

    start_line: int
    start_column: int
    end_line: int
    end_column: int


class PlainCall(NamedTuple):
    """A call of a gate without modifiers.

    Attributes:
        name: The gate.
        angles: Its angles in radians.
        operands: The register and the index of each qubit.
        span: Where the call stands.
    """

    name: str
    angles: tuple[float, ...]
    operands: tuple[tuple[str, int], ...]
    span: Place


def plain_call(line: str, number: int) -> PlainCall | None:
    """The call that a line holds, or None if it is not such a line."""
    found = _LINE.match(line)
    if found is None or found[1] in _NO_GATES:
        return None
    angles: list[float] = []
    for text in found[2].split(",") if found[2] is not None else []:
        angle = _angle(text)
        if angle is None:
            return None
        angles.append(angle)
    operands = tuple([(each[1], int(each[2])) for each in _ELEMENT.finditer(found[3])])
    span = Place(number, found.start(1), number, found.end())
    return PlainCall(found[1], tuple(angles), operands, span)


def _angle(text: str) -> float | None:
    found = _ANGLE.match(text)
    if found is None:
        return None
    minus, literal, factor, is_pi, divisor = found.groups()
    value = float(literal) if is_pi is None else pi * int(factor or 1)
    if divisor is not None:
        if int(divisor) == 0:
            return None
        value /= int(divisor)
    return -value if minus else value


def split(text: str) -> tuple[str, list[PlainCall]]:
    """Take the lines that hold plain calls out of a program.

    Returns:
        The program with empty lines in their place, and the calls.
    """
    calls: list[PlainCall] = []
    others: list[str] = []
    scanner = _Scanner()
    for number, line in enumerate(text.split("\n"), start=1):
        call = plain_call(line, number) if scanner.between_statements else None
        if call is None:
            scanner.read(line)
            others.append(line)
        else:
            calls.append(call)
            others.append("")
    return "\n".join(others), calls


_SIGNIFICANT: Final = re.compile(r'//.*|/\*|\*/|"[^"]*"|\'[^\']*\'|[{}]|\S')


class _Scanner:
    """Follows a program's text to tell where a statement may begin at the outermost level."""

    def __init__(self) -> None:
        self._depth = 0
        self._in_comment = False
        self._last = ";"

    @property
    def between_statements(self) -> bool:
        return self._depth == 0 and not self._in_comment and self._last in ";}"

    def read(self, line: str) -> None:
        if not self._in_comment and line.lstrip().startswith(("@", "#", "pragma")):
            self._last = "@"  # what follows an annotation belongs to it
            return
        for token in _SIGNIFICANT.findall(line):
            if self._in_comment:
                self._in_comment = token != "*/"
            elif token == "/*":
                self._in_comment = True
            elif not token.startswith("//"):
                self._depth += (token == "{") - (token == "}")
                self._last = token[-1]


def run_plain_call(context: Context, call: PlainCall) -> None:
    """Carry out a plain call.

    Raises:
        QasmError: If there is no such gate or qubit, or the call does not fit the gate.
    """
    entry = context.scopes.find(call.name)
    qubits = [_qubit(context, call, *operand) for operand in call.operands]
    if (
        not isinstance(entry, StandardGate)
        or entry.parameters != len(call.angles)
        or entry.qubits != len(qubits)
        or len(set(qubits)) != len(qubits)
    ):
        _run_in_full(context, call, entry)
        return
    context.records.gates(entry.build(call.angles, qubits))


def _qubit(context: Context, call: PlainCall, name: str, index: int) -> int:
    entry = context.scopes.find(name)
    if not isinstance(entry, Qubits):
        known = "is no qubit" if entry is not None else "is not defined"
        raise context.error(call, f"'{name}' {known}")
    if not entry.is_register:
        raise context.error(call, "a single qubit has no elements")
    if index >= len(entry.numbers):
        raise context.error(call, f"index {index} lies outside a register of {len(entry.numbers)}")
    return entry.numbers[index]


def _run_in_full(context: Context, call: PlainCall, entry: object) -> None:
    """Carry out a call of a defined gate, or report what is wrong with it."""
    from openqasm3 import ast

    from nimbrel.qasm.gates import call_gate

    del entry
    node = ast.QuantumGate(
        [],
        ast.Identifier(call.name),
        [ast.FloatLiteral(angle) for angle in call.angles],
        [
            ast.IndexedIdentifier(ast.Identifier(name), [[ast.IntegerLiteral(index)]])
            for name, index in call.operands
        ],
    )
    node.span = ast.Span(*call.span)
    for each in (*node.arguments, *node.qubits):
        each.span = node.span
    call_gate(context, node)


__all__ = ["DefinedGate", "PlainCall", "plain_call", "run_plain_call", "split"]
