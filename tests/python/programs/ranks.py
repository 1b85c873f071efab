"""Random programs for registers over many ranks: gates, measurements, flags, jumps."""

from __future__ import annotations

import random

from models import opcodes
from models.wire import Record, signed, tagged
from programs.dense import GATES, PHASES, ProgramSource, random_flag, wild_gate

MOST_LETTERS = 3
"""Letters X and Y of a Pauli product, so that a part of 3 qubits holds them."""
QUBITS = (6, 10)
LENGTH = (10, 60)


def few_letters(mask: int, most: int = MOST_LETTERS) -> int:
    """The lowest bits of a mask, so many at most."""
    kept = 0
    while mask and most:
        kept |= mask & -mask
        mask &= mask - 1
        most -= 1
    return kept


def for_ranks(record: Record) -> Record:
    """A record that ranks carry out.

    Pauli products have few letters X and Y, and none of these among the controls. Phases negate no
    target.
    """
    low = record.opcode & 0xFFFFFFFF
    if low in PHASES:
        return record._replace(cond_neg_mask=record.cond_neg_mask & ~record.target_mask)
    if low not in (opcodes.PPR, opcodes.PPM, opcodes.PCP):
        return record
    letters = few_letters(record.target_mask)
    made = record._replace(target_mask=letters)
    if low == opcodes.PPR:
        return made._replace(read_flag=signed(record.read_flag & ~letters))
    return made


class RankSource(ProgramSource):
    """Draws programs whose flags decide about later records."""

    def __init__(self, rng: random.Random, num_qubits: int) -> None:
        super().__init__(rng, num_qubits)
        self._label = 0
        self._kinds |= {self._wild: 20, self._nand: 4, self._skip: 4, self._x_batch: 2}

    def whole_program(self) -> list[Record]:
        """A program with its reset. Half of the register's qubits begin in superposition."""
        start = [
            tagged(opcodes.RESET, target_mask=self.num_qubits),
            tagged(opcodes.H, target_mask=self._mask()),
        ]
        return start + [for_ranks(r) for r in self.program(self.rng.randint(*LENGTH))]

    def _wild(self) -> list[Record]:
        gate = wild_gate(self.rng, self.rng.choice(GATES), self.num_qubits)
        return [gate._replace(cond_flag=random_flag(self.rng))]

    def _nand(self) -> list[Record]:
        first, second, dest = (self.rng.randint(-30, 30) for _ in range(3))
        masks = {"target_mask": first % 2**64, "cond_mask": second % 2**64}
        return self._record(opcodes.FLAG_NAND, **masks, read_flag=dest)

    def _skip(self) -> list[Record]:
        """A jump over some records, which may hold jumps and labels of their own."""
        self._label += 1
        label = self.rng.choice((self._label, self._label, 0))
        inside = [record for _ in range(self.rng.randint(0, 4)) for record in self._step()]
        jump = self._record(opcodes.JUMP_FWD, target_mask=label)
        return [*jump, *inside, tagged(opcodes.LABEL, target_mask=label)]

    def _x_batch(self) -> list[Record]:
        first, second = self.rng.sample(range(self.num_qubits), 2)
        masks = ({"target_mask": 1 << first}, {"cond_mask": 1 << second})
        return [tagged(opcodes.PCP, **mask, angle=2000.0 + k) for k, mask in enumerate(masks)]
