#!/usr/bin/env python3
"""Fuzzes the programs that the command reads from files: OpenQASM, NumPy arrays of records.

python tests/fuzz/python/fuzz_files.py CORPUS [libFuzzer's options]
"""

from __future__ import annotations

import io
import sys
import tempfile
from pathlib import Path
from typing import Final

import atheris
import numpy as np

with atheris.instrument_imports(include=["nimbrel"]):
    import nimbrel  # noqa: F401 - its modules are instrumented on their first import
    from nimbrel.command.programs import check_filter, read_program
    from nimbrel.opcodes import Opcode
    from nimbrel.records import QPU_OP

from byte_reader import ByteReader

_OPCODES: Final = [int(opcode) for opcode in Opcode]
_DTYPES: Final = [QPU_OP, "<u8", "u1", "<f8", "<c16", "S88", "<i4", ">u8"]
_FILTERS: Final = ["auto", "StreamQPU", "StreamSparseQPU", "StreamBitQPU", "StreamCliffordQPU"]


def _record(data: ByteReader) -> np.void:
    record = np.zeros((), QPU_OP)
    record["opcode"] = data.one_of(_OPCODES)
    record["target_mask"] = data.one_of([1, 2, 3, 4, 0, 1 << 63, 2**64 - 1])
    record["cond_mask"] = data.one_of([0, 0, 1, 2, 2**64 - 1])
    record["angle"] = data.one_of([0.0, 90.0, 45.0, 2.5, np.nan, np.inf])
    record["cond_flag"] = data.one_of([0, 0, 2, -2, -(2**63)])
    record["read_flag"] = data.one_of([0, 2, -3, 2**63 - 1])
    return record[()]


def _array_file(data: ByteReader) -> bytes:
    count = data.byte() % 8
    records = np.array([_record(data) for _ in range(count)], QPU_OP)
    if count and data.byte() % 4:
        records[0]["opcode"] = int(Opcode.RESET)
        records[0]["target_mask"] = data.byte() % 8
    stored = records.view(np.uint8).reshape(-1, 88) if data.byte() % 2 else records
    out = io.BytesIO()
    np.save(out, stored)
    content = bytearray(out.getvalue())
    # Some bytes of the header or of a record are replaced, or the end is cut off.
    for _ in range(data.byte() % 4):
        content[data.byte() * 3 % len(content)] = data.byte()
    return bytes(content[: len(content) - data.one_of([0, 0, 0, 1, 88, 127])])


class _Files:
    """A folder for the file of one input."""

    def __init__(self) -> None:
        self._folder = tempfile.TemporaryDirectory()  # removed when the process ends

    def run_input(self, data: bytes) -> None:
        """One input of the fuzzer."""
        reader = ByteReader(data)
        suffix = reader.one_of([".npy", ".npy", ".npy", ".qasm", ".NPY", ".txt"])
        path = Path(self._folder.name) / f"program{suffix}"
        path.write_bytes(_array_file(reader) if reader.byte() < 0xE0 else reader.rest())
        try:
            read = read_program(path)
            check_filter(read.program, reader.one_of(_FILTERS))
            if read.num_qubits <= 8 and not read.back_jumps:
                read.sample(1, seed=1)
        except (ValueError, RuntimeError) as error:
            if not str(error):
                raise


def main() -> None:
    """Run the fuzzer."""
    atheris.Setup(sys.argv, _Files().run_input)
    atheris.Fuzz()


if __name__ == "__main__":
    main()
