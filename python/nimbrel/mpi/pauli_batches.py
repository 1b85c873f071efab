"""Batches of Pauli products, written as the rotations that the engine makes of them."""

from __future__ import annotations

from itertools import combinations
from typing import Final, NamedTuple

import numpy as np

from nimbrel.batch_positions import batch_position
from nimbrel.mpi.operations import ANGLE, CONTROLS, TARGETS
from nimbrel.opcodes import Opcode
from nimbrel.records import Record, pack
from nimbrel.register_trace import Words
from nimbrel.suspect_search import WORDS_PER_RECORD, as_words

__all__ = ["Expansion", "PauliBatch"]

_MOST_PRODUCTS: Final = 30
"""The engine counts the subsets of a batch in 32 bits, and runs none of a larger batch."""


class Expansion(NamedTuple):
    """Gates without records of batches.

    Attributes:
        gates: The gates up to the first record that fails, shape (m, 11).
        records: The number of records that they stand for.
        error: The engine's error at the next record, if it fails: two products of a batch do not
            commute, or some are missing.
        had_batches: Whether the gates depend on batches, which may have begun in earlier programs.
    """

    gates: Words
    records: int
    error: RuntimeError | None
    had_batches: bool = True


class PauliBatch:
    """The products of a batch that has not ended yet."""

    def __init__(self) -> None:
        """Start without products."""
        self._products: list[tuple[int, int]] = []

    @property
    def x_letters(self) -> int:
        """The qubits that have a letter X or Y in a product."""
        letters = 0
        for x_mask, _ in self._products:
            letters |= x_mask
        return letters

    def expand(self, words: Words, num_qubits: int) -> Expansion:
        """Replace the records of batches by rotations.

        Args:
            words: Gate records whose conditions hold, shape (n, 11).
            num_qubits: Qubits of the register.
        """
        indices = np.flatnonzero(words[:, 0] == Opcode.PCP)
        if not len(indices):
            return Expansion(words, len(words), None, had_batches=False)
        made, start = [], 0
        for index in indices.tolist():
            made.append(words[start:index])
            start = index + 1
            try:
                made.append(self._add(words[index], (1 << num_qubits) - 1))
            except RuntimeError as error:
                return Expansion(np.concatenate(made), index, error)
        return Expansion(np.concatenate([*made, words[start:]]), len(words), None)

    def _add(self, row: Words, register: int) -> Words:
        none = np.zeros((0, len(row)), dtype=np.uint64)
        x_mask, z_mask = int(row[TARGETS]) & register, int(row[CONTROLS]) & register
        if not x_mask | z_mask:
            return none
        position = batch_position(float(row[ANGLE : ANGLE + 1].view(np.float64)[0]))
        if position.place == 0:
            self._products = []
        self._products.append((x_mask, z_mask))
        count = position.size
        if not position.is_last:
            return none
        if len(self._products) < count:
            raise RuntimeError(
                f"Error: qc.pcp() batch of {count} products has only {len(self._products)}."
            )
        return _rotations(self._products[:count])


def _rotations(products: list[tuple[int, int]]) -> Words:
    for (x_first, z_first), (x_second, z_second) in combinations(products, 2):
        if ((z_second & x_first).bit_count() + (x_second & z_first).bit_count()) % 2:
            raise RuntimeError("Error: qc.pcp() masks do not commute.")
    count = len(products)
    if count > _MOST_PRODUCTS:
        return np.zeros((0, WORDS_PER_RECORD), dtype=np.uint64)
    angle = 90.0 * 0.5 ** (count - 1)
    rows = []
    for left_out in range(count):
        for subset in range(1 << count):
            if subset.bit_count() != left_out:
                continue
            x_mask = z_mask = 0
            for place, (x_part, z_part) in enumerate(products):
                if not subset >> place & 1:
                    x_mask, z_mask = x_mask | x_part, z_mask | z_part
            signed = angle if left_out % 2 else -angle
            rows.append(Record(Opcode.PPR, x_mask, z_mask, signed))
    return as_words(pack(rows))
