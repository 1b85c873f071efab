"""The records that a register on several ranks does not carry out, refused before anything runs."""

from __future__ import annotations

from typing import Final, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.mpi.operations import CONTROLS, NEGATED, PHASES, READ_FLAG, TARGETS, Bools
from nimbrel.mpi.word_bits import bit_counts
from nimbrel.opcodes import Opcode
from nimbrel.record_names import record_name
from nimbrel.record_rules import JUMP_FAMILY_BYTE
from nimbrel.register_trace import Words

__all__ = ["check_records"]

_Indices: TypeAlias = npt.NDArray[np.intp]

_KNOWN: Final = np.array(sorted(map(int, Opcode)), dtype=np.uint64)
_REFUSED: Final = (Opcode.EXTEND, Opcode.JUMP_BACK, Opcode.CALLBACK)


def check_records(words: Words, num_ranks: int, num_qubits: int | None) -> None:
    """Check a program.

    Args:
        words: The program, shape (n, 11).
        num_ranks: Number of ranks, a power of two.
        num_qubits: Qubits of the register before the program; None if there is none.

    Raises:
        ValueError: With the index and the name of the record that is refused.
        RuntimeError: If a record needs a register and there is none.
    """
    opcodes, targets = words[:, 0], words[:, TARGETS]
    places = np.searchsorted(_KNOWN, opcodes).clip(max=len(_KNOWN) - 1)
    unknown = (_KNOWN[places] != opcodes) & (opcodes & np.uint64(0xFF) != JUMP_FAMILY_BYTE)
    _refuse(words, unknown, "is no record of a dense filter")
    for opcode in _REFUSED:
        _refuse(words, opcodes == opcode, "is carried out by no dense filter")
    several = targets & (targets - np.uint64(1)) != 0
    own = targets & words[:, NEGATED] & ~words[:, CONTROLS] != 0
    phases = PHASES.among(opcodes) & (opcodes != Opcode.Z)
    _refuse(words, phases & several & own, "negates one of several targets")
    labels = (opcodes == Opcode.LABEL) & (words[:, CONTROLS] != 0)
    _refuse(words, labels, "has a quantum condition")
    resets = np.flatnonzero(opcodes == Opcode.RESET)
    if num_qubits is None and len(words) and (not len(resets) or resets[0] != 0):
        raise RuntimeError("there is no register yet: a program on ranks begins with its reset")
    _check_sizes(words, resets, num_ranks)
    if num_ranks > 1:
        _check_products(words, resets, num_ranks, num_qubits)


def _refuse(words: Words, which: Bools, reason: str) -> None:
    if which.any():
        index = int(which.argmax())
        raise ValueError(f"record {index} ({record_name(int(words[index, 0]))}) {reason}")


def _check_sizes(words: Words, resets: _Indices, num_ranks: int) -> None:
    least = num_ranks.bit_length()
    for index in resets.tolist():
        size = int(words[index, TARGETS])
        if size < least:
            raise ValueError(
                f"record {index} (reset) makes a register of {size} qubits; {num_ranks} rank(s) "
                f"hold at least 2 amplitudes each, so they need {least} qubits or more"
            )


def _check_products(
    words: Words,
    resets: _Indices,
    num_ranks: int,
    num_qubits: int | None,
) -> None:
    """Refuse Pauli products that a part cannot hold, or whose letters are controls too."""
    opcodes, x_masks = words[:, 0], words[:, TARGETS]
    rotations = opcodes == Opcode.PPR
    own = rotations & (x_masks & words[:, READ_FLAG] != 0)
    _refuse(words, own, "has a control among its letters X and Y, which ranks do not carry out")
    sizes = [num_qubits] if num_qubits is not None else []
    sizes += [int(size) for size in words[resets, TARGETS]]
    local = min(sizes) - (num_ranks.bit_length() - 1)
    products = rotations | (opcodes == Opcode.PPM) | (opcodes == Opcode.PCP)
    wide = products & (bit_counts(np.where(products, x_masks, np.uint64(0))) > local)
    _refuse(
        words,
        wide,
        f"has letters X and Y on more qubits than the {local} that a part of the state holds",
    )
