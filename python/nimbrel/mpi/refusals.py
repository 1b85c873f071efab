"""The records that a register on several ranks does not carry out, refused before anything runs."""

from __future__ import annotations

from typing import Final, NamedTuple, TypeAlias

import numpy as np
import numpy.typing as npt

from nimbrel.batch_positions import batch_position
from nimbrel.masks import WORD_BITS
from nimbrel.mpi.operations import (
    ANGLE,
    COND_FLAG,
    CONTROLS,
    NEGATED,
    PHASES,
    READ_FLAG,
    TARGETS,
    Bools,
)
from nimbrel.mpi.word_bits import bit_counts
from nimbrel.opcodes import Opcode
from nimbrel.record_names import record_name
from nimbrel.record_rules import JUMP_FAMILY_BYTE
from nimbrel.register_trace import Words

__all__ = ["Before", "check_letters", "check_records"]

_Indices: TypeAlias = npt.NDArray[np.intp]

_KNOWN: Final = np.array(sorted(map(int, Opcode)), dtype=np.uint64)
_REFUSED: Final = (Opcode.EXTEND, Opcode.JUMP_BACK, Opcode.CALLBACK)


class Before(NamedTuple):
    """What is there before a program.

    Attributes:
        num_qubits: Qubits of the register; None if there is none.
        may_skip: Whether a jump is open.
        batch_letters: The qubits with letters X and Y in the batch that has not ended yet.
    """

    num_qubits: int | None = None
    may_skip: bool = False
    batch_letters: int = 0


def check_records(words: Words, num_ranks: int, before: Before) -> None:
    """Check a program.

    Args:
        words: The program, shape (n, 11).
        num_ranks: Number of ranks, a power of two.
        before: What is there before the program.

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
    if before.num_qubits is None and len(words) and (not len(resets) or resets[0] != 0):
        raise RuntimeError("there is no register yet: a program on ranks begins with its reset")
    _check_sizes(words, resets, num_ranks)
    if num_ranks > 1:
        _check_products(words, resets, num_ranks, before)


def check_letters(words: Words, before: Before) -> None:
    """Refuse measured products with a letter Y outside the register.

    The engine drops such a letter but counts it for the product's phase, which is then that of no
    measurement. `ProgramCheck` refuses all qubits outside the register unless told otherwise.

    Args:
        words: As for `check_records`.
        before: As for `check_records`.

    Raises:
        ValueError: With the index and the name of the record that is refused.
    """
    both = words[:, TARGETS] & words[:, CONTROLS]
    measured = (words[:, 0] == Opcode.PPM) & (both != 0)
    if not measured.any():
        return
    jumps = before.may_skip or bool((words[:, 0] == Opcode.JUMP_FWD).any())
    resets = np.flatnonzero(words[:, 0] == Opcode.RESET)
    sizes = _local_qubits(words, resets, 1, before.num_qubits, jumps=jumps)
    inside = np.array([(1 << min(size, WORD_BITS)) - 1 for size in sizes.tolist()], dtype=np.uint64)
    _refuse(words, measured & (both & ~inside != 0), "has a letter Y outside the register")


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
    before: Before,
) -> None:
    """Refuse Pauli products that a part cannot hold, or whose letters are controls too."""
    opcodes, x_masks = words[:, 0], words[:, TARGETS]
    rotations = opcodes == Opcode.PPR
    own = rotations & (x_masks & words[:, READ_FLAG] != 0)
    _refuse(words, own, "has a control among its letters X and Y, which ranks do not carry out")
    batches = opcodes == Opcode.PCP
    products = rotations | batches | (opcodes == Opcode.PPM)
    if not products.any():
        return
    jumps = before.may_skip or bool((opcodes == Opcode.JUMP_FWD).any())
    local = _local_qubits(words, resets, num_ranks, before.num_qubits, jumps=jumps)
    letters = np.where(products, x_masks, np.uint64(0))
    if batches.any():
        _merge_batches(words, letters, before.batch_letters, jumps=jumps)
    wide = bit_counts(letters) > local
    if wide.any():
        held = int(local[wide.argmax()])
        _refuse(
            words,
            wide,
            f"has letters X and Y on more qubits than the {held} that a part of the state holds",
        )


def _local_qubits(
    words: Words, resets: _Indices, num_ranks: int, num_qubits: int | None, *, jumps: bool
) -> _Indices:
    """The fewest qubits that a part may hold when each record runs, shape (n,)."""
    sizes = np.full(len(words), np.iinfo(np.intp).max if num_qubits is None else num_qubits)
    for index in resets.tolist():
        size = min(int(words[index, TARGETS]), WORD_BITS)
        # A jump may skip the reset.
        sizes[index:] = np.minimum(sizes[index:], size) if jumps else size
    return sizes - (num_ranks.bit_length() - 1)


def _merge_batches(words: Words, letters: Words, collected: int, *, jumps: bool) -> None:
    """Give the last product of a batch the letters of all of its products.

    A product that a condition or a jump may skip begins no batch for sure.
    """
    for index in np.flatnonzero(words[:, 0] == Opcode.PCP).tolist():
        row = words[index]
        position = batch_position(float(row[ANGLE : ANGLE + 1].view(np.float64)[0]))
        is_sure = not jumps and row[COND_FLAG] <= 1
        own = int(letters[index])
        collected = own if position.place == 0 and is_sure else collected | own
        if position.is_last:
            letters[index] = collected
