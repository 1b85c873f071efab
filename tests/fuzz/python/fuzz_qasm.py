#!/usr/bin/env python3
"""Fuzzes the reader of OpenQASM: a text gives a program or a `QasmError`, and nothing else.

A program that was read is written and read again, and is run twice.

    python tests/fuzz/python/fuzz_qasm.py CORPUS [libFuzzer's options]
"""

from __future__ import annotations

import sys

import atheris

with atheris.instrument_imports(include=["nimbrel"]):
    import nimbrel  # noqa: F401 - its modules are instrumented on their first import
    from nimbrel import qasm
    from nimbrel.qasm import QasmError, QasmProgram

from byte_reader import ByteReader
from qasm_texts import program_text

_MOST_RECORDS = 300
_MOST_QUBITS = 8


def run_input(data: bytes) -> None:
    """One input of the fuzzer."""
    reader = ByteReader(data)
    kind = reader.byte()
    text = reader.rest().decode("utf-8", "replace") if kind >= 0xF0 else program_text(reader)
    try:
        read = qasm.loads(text, inputs={"w": 0.5, "k": 3} if kind % 2 else None)
    except QasmError:
        return
    if len(read.records) <= _MOST_RECORDS and not read.back_jumps:
        _write_and_read(read)
        if read.num_qubits <= _MOST_QUBITS:
            _run(read)


def _write_and_read(read: QasmProgram) -> None:
    try:
        text = qasm.dumps(read.records)
    except ValueError:
        return
    qasm.loads(text)


def _run(read: QasmProgram) -> None:
    try:
        read.sample(2, seed=1)
    except (ValueError, RuntimeError) as error:
        if not str(error):
            raise


def main() -> None:
    """Run the fuzzer."""
    atheris.Setup(sys.argv, run_input)
    atheris.Fuzz()


if __name__ == "__main__":
    main()
