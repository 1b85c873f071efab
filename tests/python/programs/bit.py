"""Random programs for the bit filter: mostly ordinary, sometimes unusual or failing."""

from __future__ import annotations

import random
from collections.abc import Callable

from models import bit, opcodes
from models.wire import TAG, WORD, Record, tagged
from programs.drawn import steps

ODD_FLAGS = [
    100_000_000,
    100_000_001,
    100_000_007,
    -100_000_007,
    99_999_999,
    2**31 + 5,
    -(2**31) - 5,
    2**63 - 1,
    -(2**63),
    -(2**63) + 1,
]

ODD_OPCODES = [
    0,
    5,
    TAG << 32 | 0x07,
    TAG << 32 | 0x10000004,
    (TAG + 1) << 32 | 0x05,
    2**64 - 1,
]

JUMPS = [TAG << 32 | opcodes.JUMP_FAMILY, 0x16, opcodes.JUMP_FWD, (TAG ^ 1) << 32 | opcodes.LABEL]


def random_width(rng: random.Random) -> int:
    """A register size, often near a multiple of 64."""
    return rng.choice((1, 2, 8, 63, 64, 65, 127, 128, 129, 192, 300, *(rng.randint(1, 300),) * 8))


def wild_record(rng: random.Random) -> Record:
    """A record that the bit filter carries out, with arbitrary masks, flags and offsets.

    Not a reset, because the effect of a huge one depends on the machine's memory.
    """
    low = rng.choice(
        (
            opcodes.X,
            opcodes.SWAP,
            opcodes.LELBOW,
            opcodes.RELBOW,
            opcodes.READ,
            opcodes.WRITE,
            opcodes.CLEAR,
            opcodes.FREE,
            opcodes.EXTEND,
            opcodes.FLAG_NAND,
        )
    )
    target, cond, negated = (rng.getrandbits(64) & rng.getrandbits(64) for _ in range(3))
    offsets = [rng.getrandbits(rng.choice((6, 7, 8, 9, 64))) for _ in range(2)]
    flags = [rng.getrandbits(64) - (1 << 63) for _ in range(2)]
    return Record(
        TAG << 32 | low,
        rng.choice((0, target)),
        rng.choice((0, 1, cond)),
        cond_flag=rng.choice((0, 0, 0, flags[0])),
        read_flag=rng.choice((2, flags[1])),
        cond_neg_mask=rng.choice((0, negated)),
        target_offset=offsets[0],
        cond_offset=offsets[1],
    )


NOISE = 0x9E3779B97F4A7C15 >> 8  # spreads a byte over the bits of a word


class RecordSource:
    """Draws records for a register of some width. It does not track their effect."""

    def __init__(self, rng: random.Random, num_qubits: int) -> None:
        self.rng = rng
        self.num_qubits = num_qubits
        self._kinds: dict[Callable[[], Record], int] = {
            self._flip: 26,
            self._swap: 2,
            self._read: 14,
            self._write: 14,
            self._clear: 4,
            self._free: 10,
            self._extend: 22,
            self._nand: 8,
            self._event_marker: 8,
            self._jump: 4,
            self._label: 6,
            self._ignored: 4,
            self._reset: 1,
            self._failing: 2,
        }

    def records(self, count: int) -> list[Record]:
        """About `count` records. A swap that needs an extension is drawn as a group."""
        return [record for _ in steps(self.rng, count) for record in self._one_or_whole_swap()]

    def record(self) -> Record:
        return self._any_kind()

    def _any_kind(self) -> Record:
        kinds = self._kinds
        return self.rng.choices(list(kinds), weights=list(kinds.values()))[0]()

    def _one_or_whole_swap(self) -> list[Record]:
        return [self._any_kind()] if self.rng.random() < 0.9 else self._whole_swap()

    def _record(self, low: int, **words: int | float) -> Record:
        """A record of the engine's tag with arbitrary reserved words."""
        noise = self.rng.getrandbits(8) * NOISE
        return tagged(low, **words, reserved_a=noise, reserved_b=noise ^ WORD)

    def _mask(self, bits_wanted: int | None = None) -> int:
        """A mask, usually of a few qubits; rarely empty, full or random."""
        if bits_wanted is None:
            odd = self.rng.random()
            if odd < 0.1:
                return self.rng.choice((0, WORD, 1 << 63, self.rng.getrandbits(64)))
            bits_wanted = self.rng.choice((1, 1, 2, 3, 5))
        top = min(64, self.num_qubits) if self.rng.random() < 0.9 else 64
        return sum(1 << bit for bit in self.rng.sample(range(top), min(bits_wanted, top)))

    def _offset(self, mask: int) -> int:
        """An offset inside the register, or any offset if the mask is empty."""
        words = (self.num_qubits + 63) // 64
        if mask == 0:
            return self.rng.choice((0, self.rng.getrandbits(64)))
        if self.rng.random() < 0.003:
            return self.rng.choice((words * 64, words * 64 + 63, 1 << 40, WORD))
        return self.rng.randrange(words) * 64 + self.rng.choice((0, self.rng.randrange(64)))

    def _targets(self, bits_wanted: int | None = None) -> dict[str, int]:
        mask = self._mask(bits_wanted)
        return {"target_mask": mask, "target_offset": self._offset(mask)}

    def _conds(self) -> dict[str, int]:
        mask = self._mask(self.rng.choice((0, 0, 1, 1, 2)))
        negated = mask & self.rng.getrandbits(64)
        if self.rng.random() < 0.03:
            negated = self.rng.getrandbits(64)
        return {"cond_mask": mask, "cond_neg_mask": negated, "cond_offset": self._offset(mask)}

    def _flag(self) -> int:
        """A usual flag number, or one at a limit of the table or of 64 bits."""
        odd = self.rng.random()
        if odd < 0.01:
            return self.rng.choice(ODD_FLAGS)
        if odd < 0.1:
            return self.rng.randint(-200, 200)
        return self.rng.choice((-1, 1)) * self.rng.randint(0, 12)

    def _cond_flag(self) -> int:
        return 0 if self.rng.random() < 0.7 else self._flag()

    def _flip(self) -> Record:
        low = self.rng.choice((opcodes.X, opcodes.X, opcodes.LELBOW, opcodes.RELBOW))
        words = self._targets(self.rng.choice((None, 1, 2, 30))) | self._conds()
        return self._record(low, **words, cond_flag=self._cond_flag(), read_flag=self._flag())

    def _swap(self) -> Record:
        bits_wanted = self.rng.choice((2,) * 30 + (1, 3))
        words = self._targets(bits_wanted) | self._conds()
        return self._record(opcodes.SWAP, **words, cond_flag=self._cond_flag())

    def _whole_swap(self) -> list[Record]:
        """A swap of two qubits, in one mask or with an extension, after a marker."""
        conds = self._conds() | {"cond_flag": self._cond_flag()}
        swap = self._record(opcodes.SWAP, **self._targets(2), **conds)
        if self.num_qubits == 1 or self.rng.random() < 0.5:
            extension = self._record(opcodes.EXTEND, **self._targets(1))
            return [
                self._ignored(),
                extension,
                self._record(opcodes.SWAP, **self._targets(1), **conds),
            ]
        return [self._ignored(), swap]

    def _read(self) -> Record:
        words = self._targets() | self._conds()
        return self._record(
            opcodes.READ, **words, cond_flag=self._cond_flag(), read_flag=self._flag()
        )

    def _write(self) -> Record:
        words = self._targets()
        value = self.rng.choice((0, WORD, self.rng.getrandbits(64)))
        offset = words["target_offset"] if self.rng.random() < 0.8 else self._offset(value)
        return self._record(
            opcodes.WRITE,
            **words,
            cond_mask=value,
            cond_offset=offset if value else self._offset(0),
            cond_neg_mask=self._mask(),
            cond_flag=self._cond_flag(),
            read_flag=self._flag(),
        )

    def _clear(self) -> Record:
        words = self._targets()
        return self._record(
            opcodes.CLEAR, **words, cond_mask=self._mask(), cond_flag=self._cond_flag()
        )

    def _free(self) -> Record:
        words = self._targets(self.rng.choice((None, 1, 3, 16, 64)))
        checks = self.rng.choice((16, 16, 16, 0, 1, self.rng.getrandbits(64)))
        code = self.rng.choice((self.rng.randint(0, 50), self.rng.getrandbits(63), self._flag()))
        return self._record(
            opcodes.FREE, **words, cond_mask=checks, cond_flag=self._cond_flag(), read_flag=code
        )

    def _extend(self) -> Record:
        words = self._targets(self.rng.choice((0, 1, 1, 2))) | self._conds()
        return self._record(opcodes.EXTEND, **words, cond_flag=self._cond_flag())

    def _nand(self) -> Record:
        a, b = self._flag() & WORD, self._flag() & WORD
        flags = {"cond_flag": self._cond_flag(), "read_flag": self._flag()}
        return self._record(opcodes.FLAG_NAND, target_mask=a, cond_mask=b, **flags)

    def _event_marker(self) -> Record:
        low = self.rng.choice((*opcodes.OPEN_EVENTS, *opcodes.CLOSE_EVENTS))
        return self._record(low, angle=self.rng.choice((0.0, 1.0, 1.75, 2.0, 3.0, 2.0**63, -1.0)))

    def _jump(self) -> Record:
        opcode = self._record(opcodes.JUMP_FWD).opcode
        if self.rng.random() < 0.2:
            opcode = self.rng.choice(JUMPS)
        label = self.rng.choice((0, 1, 1, 2, 3))
        return Record(
            opcode, target_mask=label, cond_mask=self._mask(), cond_flag=self._cond_flag()
        )

    def _label(self) -> Record:
        return self._record(opcodes.LABEL, target_mask=self.rng.choice((0, 1, 1, 1, 2, 3)))

    def _ignored(self) -> Record:
        words = self._targets() | self._conds()
        return self._record(self.rng.choice(bit.IGNORED), **words, cond_flag=self._cond_flag())

    def _reset(self) -> Record:
        self.num_qubits = random_width(self.rng)
        # Sometimes a reset to 0 qubits. The source keeps its width, so the next records fail.
        width = self.num_qubits if self.rng.random() < 0.9 else 0
        return self._record(opcodes.RESET, target_mask=width, cond_flag=self._cond_flag())

    def _failing(self) -> Record:
        low = self.rng.choice(
            (*bit.REFUSED, opcodes.CALLBACK, opcodes.JUMP_BACK, opcodes.LABEL, None)
        )
        if low is None:
            return Record(self.rng.choice(ODD_OPCODES), target_mask=self._mask())
        words = self._targets() | {"cond_mask": self._mask(1), "cond_flag": self._cond_flag()}
        return self._record(low, **words, read_flag=self._flag())
