"""The reference parser of OpenQASM 3, with its errors as `QasmError`."""

from __future__ import annotations

import contextlib
import io
import re
from bisect import bisect_left
from typing import Any, Final

import openqasm3
from openqasm3.parser import QASM3ParsingError

from nimbrel.qasm.errors import QasmError
from nimbrel.qasm.gate_lines import split

_POSITION: Final = re.compile(r"L(\d+):C(\d+): (.*)", re.DOTALL)
_BLANK: Final = re.compile(r"(?:\s|//[^\n]*|/\*.*?\*/)*", re.DOTALL)


def parse(text: str, file: str) -> list[Any]:
    """The statements of a program, in order.

    Raises:
        QasmError: If the text is not OpenQASM 3.
    """
    rest, calls = split(text)
    statements = _parse_whole(rest, file)
    lines = [call.span.start_line for call in calls]
    for statement in statements:
        span = statement.span
        if bisect_left(lines, span.start_line) != bisect_left(lines, span.end_line):
            return _parse_whole(text, file)  # a call stood inside a statement
    return sorted([*statements, *calls], key=lambda statement: statement.span.start_line)


def _parse_whole(text: str, file: str) -> list[Any]:
    if _BLANK.fullmatch(text):
        return []  # the parser fails on a text without a token
    try:
        # The lexer prints its errors as well as raising them.
        with contextlib.redirect_stderr(io.StringIO()):
            statements: list[Any] = openqasm3.parse(text).statements
    except QASM3ParsingError as error:
        raise _located(error, text, file) from None
    except RecursionError:
        raise QasmError("the program is nested too deeply", file, 1, 1) from None
    return statements


def _located(error: QASM3ParsingError, text: str, file: str) -> QasmError:
    found = _POSITION.match(str(error))
    if found is not None:
        return QasmError(found[3], file, int(found[1]), int(found[2]) + 1)
    token = _offending_token(error)
    if token is None:
        return QasmError("the text is not OpenQASM 3", file, text.count("\n") + 1, 1)
    shown = "the end of the text" if token.type == -1 else repr(token.text)
    return QasmError(f"{shown} is not expected here", file, token.line, token.column + 1)


def _offending_token(error: QASM3ParsingError) -> Any:
    cause: Any = error.__cause__
    while cause is not None:
        inner = cause.args[0] if cause.args else None
        for each in (cause, inner):
            token = getattr(each, "offendingToken", None)
            if token is not None:
                return token
        cause = cause.__cause__
    return None
