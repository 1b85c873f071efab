"""Programs from files, by their suffix."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from dataclasses import dataclass
from functools import partial
from pathlib import Path
from typing import Any, Final

import numpy as np

from nimbrel.classical import reset
from nimbrel.record_names import record_name
from nimbrel.records import QPU_OP, Program, program
from nimbrel.running.exact_records import CLASSICAL, CLIFFORD, SPARSE, first_objection
from nimbrel.running.filter_choice import FilterChoice, choose_filter
from nimbrel.running.flag_use import flag_use
from nimbrel.running.samples import Samples
from nimbrel.running.shots import sample
from nimbrel.suspect_search import as_words
from nimbrel.translation.back_jumps import BackJump

STIM_CHOICE: Final = FilterChoice("StreamCliffordQPU", "it is a Stim circuit")
"""The filter of Stim circuits. Their noise may have gates that the records do not show."""

_TABLES: Final = {
    "StreamBitQPU": CLASSICAL,
    "StreamCliffordQPU": CLIFFORD,
    "StreamSparseQPU": SPARSE,
}

_MOST_FLAGS: Final = 1 << 20


@dataclass(frozen=True)
class FileProgram:
    """A program from a file.

    Attributes:
        program: The records.
        num_qubits: Qubits of the register.
        registers: The read flags of each classical register by its name, bit 0 first.
        choice: The filter that runs it, and why.
        sample: Draws the outcomes of the registers, with the number of shots, `filter` and `seed`
            of `nimbrel.sample`.
        back_jumps: The jumps back that the companion carries out, in the order of their positions.
    """

    program: Program
    num_qubits: int
    registers: Mapping[str, range]
    choice: FilterChoice
    sample: Callable[..., Samples]
    back_jumps: tuple[BackJump, ...] = ()


def read_program(file: Path) -> FileProgram:
    """Read a program.

    Raises:
        ValueError: If the suffix is unknown, or the file holds no program.
        ImportError: If a package for files of this kind is missing.
        OSError: If the file cannot be read.
    """
    suffix = file.suffix.lower()
    if suffix == ".qasm":
        from nimbrel.qasm import load

        read = load(file)
        records = read.records
        return FileProgram(
            *(records, read.num_qubits, read.bits, choose_filter(records)),
            *(read.sample, read.back_jumps),
        )
    if suffix == ".stim":
        from nimbrel.stim import from_circuit

        converted = from_circuit(read_stim(file))
        flags = converted.read_flags
        registers = {"rec": flags} if flags else {}
        draw = _draws(converted.program, registers)
        return FileProgram(converted.program, converted.num_qubits, registers, STIM_CHOICE, draw)
    if suffix == ".npy":
        return _records(file)
    raise ValueError(f"{file}: the suffix is {suffix or 'missing'}, not .qasm, .stim or .npy")


def check_filter(records: Program, filter_: str) -> None:
    """Refuse a filter on which a record has another meaning or none.

    Args:
        records: The program.
        filter_: "auto" or an engine type name.

    Raises:
        ValueError: With the index and the name of the record.
    """
    table = _TABLES.get(filter_)
    if table is None:
        return
    words = as_words(records)
    positions = {
        int(opcode): np.flatnonzero(words[:, 0] == opcode) for opcode in np.unique(words[:, 0])
    }
    objection = first_objection(words, positions, table)
    if objection is not None:
        raise ValueError(
            f"record {objection.record} ({record_name(objection.opcode)}) cannot be carried out "
            f"exactly on {filter_}"
        )


def read_stim(file: Path) -> Any:
    """Read a Stim circuit.

    Raises:
        ValueError: If the file holds none.
        ImportError: If Stim is missing.
    """
    import stim

    import nimbrel.stim  # noqa: F401 - its error says how to install Stim

    try:
        return stim.Circuit(file.read_text(encoding="utf-8"))
    except ValueError as error:
        raise ValueError(f"{file}: {error}") from None


def _records(file: Path) -> FileProgram:
    try:
        with file.open("rb") as opened:
            stored = np.load(opened, allow_pickle=False)
    except OSError:
        raise
    except Exception as error:  # NumPy lets errors of what reads the header and archives pass
        raise ValueError(f"{file}: {error}") from None
    if not isinstance(stored, np.ndarray):
        raise ValueError(f"{file}: an archive of arrays is no program")
    if stored.dtype != QPU_OP:
        words = np.ascontiguousarray(stored)
        if words.dtype.itemsize * (words.shape[-1] if words.ndim == 2 else 0) != QPU_OP.itemsize:
            raise ValueError(
                f"{file}: an array of dtype {stored.dtype} and shape {stored.shape} holds no "
                f"records of {QPU_OP.itemsize} bytes"
            )
        stored = words.view(np.uint8).reshape(-1).view(QPU_OP)
    if stored.ndim != 1:
        raise ValueError(f"{file}: a program has one dimension, not {stored.ndim}")
    records = program(stored)
    if not len(records) or records["opcode"][0] != reset(1)["opcode"][0]:
        raise ValueError(f"{file}: the first record of the program must be its reset")
    flags = flag_use(records).stored
    if flags and flags[-1] - flags[0] >= _MOST_FLAGS:
        raise ValueError(
            f"{file}: the read flags {flags[0]} to {flags[-1]} are more than {_MOST_FLAGS}, which "
            "is the most that one register has"
        )
    registers = {"flags": range(flags[0], flags[-1] + 1)} if flags else {}
    choice = choose_filter(records)
    draw = _draws(records, registers)
    return FileProgram(records, int(records["target_mask"][0]), registers, choice, draw)


def _draws(records: Program, registers: Mapping[str, range]) -> Callable[..., Samples]:
    flags = [flag for register in registers.values() for flag in register]
    return partial(sample, records, read_flags=flags)
