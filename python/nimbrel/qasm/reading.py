"""Reads a program of either version of OpenQASM."""

from __future__ import annotations

import re
from collections.abc import Mapping
from os import PathLike
from pathlib import Path
from typing import Final

from nimbrel.qasm.collection import without_collection
from nimbrel.qasm.errors import QasmError
from nimbrel.qasm.qasm_program import QasmProgram

_VERSION: Final = re.compile(r"(?:\s|//[^\n]*(?:\n|\Z)|/\*.*?\*/)*OPENQASM\s+(\d+)", re.DOTALL)
_TEXT: Final = "<text>"


def loads(text: str, *, inputs: Mapping[str, float] | None = None) -> QasmProgram:
    """Read a program from text.

    Args:
        text: OpenQASM 2 if it begins with `OPENQASM 2`, otherwise OpenQASM 3.
        inputs: The values of the variables that the program declares as `input`.

    Returns:
        The program, the qubits of its registers, and the read flags of its classical bits.

    Raises:
        QasmError: If the text is not OpenQASM, or if a statement has no form in this system. The
            error names the line and the column.
        ImportError: If a package of the extra "qasm" is missing.
    """
    return _read(text, _TEXT, None, inputs or {})


def load(path: str | PathLike[str], *, inputs: Mapping[str, float] | None = None) -> QasmProgram:
    """Read a program from a file. Files that it includes are looked for beside it.

    Args:
        path: The file, in UTF-8.
        inputs: As for `loads`.

    Returns:
        As `loads`.

    Raises:
        QasmError: As `loads`; the error names the file.
        ImportError: As `loads`.
        OSError: If the file cannot be read.
    """
    file = Path(path)
    try:
        text = file.read_text(encoding="utf-8")
    except UnicodeDecodeError as error:
        raise QasmError(f"the file is not UTF-8: {error}", str(path), 1, 1) from None
    return _read(text, str(path), file.parent, inputs or {})


def _read(text: str, file: str, folder: Path | None, inputs: Mapping[str, float]) -> QasmProgram:
    version = _VERSION.match(text)
    # The readers import packages that a program of the other version does not need.
    try:
        if version is not None and version[1] == "2":
            from nimbrel.qasm.read2 import read2

            with without_collection():
                return read2(text, file, folder)
        from nimbrel.qasm.read3 import read3
    except ModuleNotFoundError as error:
        package = (error.name or "").partition(".")[0]
        raise ImportError(f"nimbrel.qasm needs {package}: pip install nimbrel[qasm]") from error
    if version is not None and version[1] != "3":
        line = text.count("\n", 0, version.start(1)) + 1
        column = version.start(1) - text.rfind("\n", 0, version.start(1))
        raise QasmError(f"OpenQASM {version[1]} is not read", file, line, column)
    with without_collection():
        return read3(text, file, folder, inputs)
