"""Random records for the Clifford filter: mostly ordinary, sometimes unusual or refused."""

from __future__ import annotations

import math
import random
from collections.abc import Callable

from models import opcodes
from models.clifford import IGNORED, REFUSED, qubits_of
from models.program import Pair
from models.wire import WORD, Record, tagged
from programs.bit import ODD_OPCODES, RecordSource
from programs.drawn import steps

WIDTHS = (1, 2, 3, 63, 64, 65, 66, 127, 128, 129, 130)
FREE_GATES = (*(opcodes.H,) * 3, opcodes.S, opcodes.S, opcodes.S_INV, opcodes.Y)
QUARTERS = (90.0, -90.0, 180.0)
EIGHTHS = tuple(45.0 * k for k in range(-9, 10))
# Angles whose double overflows 32 bits, and angles that do not fit 32 bits.
EDGE_ANGLES = (2.0**31 - 68, 1073741865.0, -1073741865.0, -(2.0**31), 2.0**31, 2.0**32 - 1)
WRONG_ANGLES = (45.5, 30.0, 1e-300, 44.999999999999996, math.inf, -math.inf, math.nan)
SIGNS = (1.0, 0.0, -1.0, -1.0, -1.5, -0.5, -2.0, 2.0**32 - 1, math.nan, math.inf)


def random_width(rng: random.Random) -> int:
    """A register size: mostly small, often near a multiple of 64, rarely 0."""
    few = rng.randint(1, 8)
    return rng.choice((0, rng.choice(WIDTHS), rng.choice(WIDTHS), rng.randint(1, 130), *(few,) * 8))


class CliffordSource(RecordSource):
    """Draws records for a register of some width. The caller reports changes of the width.

    If a program is compared rarely, its outcomes stay unknown and a failure ends it early. So
    `steady` leaves out records that depend on an outcome or change the width, and makes failures
    rare.
    """

    def __init__(self, rng: random.Random, num_qubits: int, *, steady: bool = False) -> None:
        super().__init__(rng, num_qubits)
        self.steady = steady
        self._kinds: dict[Callable[[], Record], int] = {
            self._gate: 26,
            self._flip: 18,
            self._z: 8,
            self._turn: 6,
            self._swap: 5,
            self._ppr: 8,
            self._ppm: 6,
            self._read: 8,
            self._write: 6,
            self._clear: 2,
            self._free: 2,
            self._extend: 3 if steady else 14,
            self._ignored: 3,
        }
        if not steady:
            self._kinds |= {
                self._nand: 3,
                self._event_marker: 2,
                self._jump: 1,
                self._label: 3,
                self._reset: 1,
                self._failing: 3,
            }

    def record(self) -> Record:
        kinds = self._kinds
        return self.rng.choices(list(kinds), weights=list(kinds.values()))[0]()

    def _errs(self, probability: float) -> bool:
        """Whether to draw something that may be refused."""
        return self.rng.random() < probability * (0.05 if self.steady else 1.0)

    # Masks. The whole offset counts, so a mask is drawn together with it.

    def _span(self, count: int) -> tuple[int, int]:
        """A mask and an offset that name up to `count` qubits of the register."""
        first = self.rng.randrange(max(self.num_qubits, 1))
        word = first // 64 * 64
        base = self.rng.choice((word, word, first, max(first - self.rng.randrange(64), 0)))
        if word == 0 and self.rng.random() < 0.05:
            base = -self.rng.randrange(1, 64)  # which wraps around 64 bits on the way up
        low, high = max(-base, 0), min(64, self.num_qubits - base)
        places = self.rng.sample(range(low, high), min(count, high - low)) if low < high else []
        return sum(1 << place for place in places), base & WORD

    def _wide_mask(self, count: int | None) -> tuple[int, int]:
        """Likewise, rarely with qubits outside the register or with many qubits."""
        if self._errs(0.01):
            offset = self.rng.choice((0, self.num_qubits, self.rng.getrandbits(8), WORD, 1 << 40))
            return self.rng.choice((1, 1 << 63, self.rng.getrandbits(64))), offset
        if self._errs(0.03):
            return 0, self.rng.getrandbits(64)
        if count is None:
            count = self.rng.choice((1, 1, 1, 1, 1, 1, 2, 2, 3, 64))
        return self._span(count)

    def _targets(self, bits_wanted: int | None = None) -> dict[str, int]:
        mask, offset = self._wide_mask(bits_wanted)
        return {"target_mask": mask, "target_offset": offset}

    def _conds(self, count: int | None = None) -> dict[str, int]:
        """Controls, mostly none or one. Negations without a control have no effect."""
        if count is None:
            count = 2 if self._errs(0.1) else self.rng.choice((0, 1, 1))
        mask, offset = self._wide_mask(count) if count else (0, self.rng.getrandbits(64))
        negated = self.rng.choice((0, mask & self.rng.getrandbits(64), self.rng.getrandbits(64)))
        return {"cond_mask": mask, "cond_neg_mask": negated, "cond_offset": offset}

    def _seldom_conds(self) -> dict[str, int]:
        return self._conds(1 if self._errs(0.03) else 0)

    def _apart(self, targets: dict[str, int], conds: dict[str, int]) -> dict[str, int]:
        """Mostly drops controls that are targets, because such gates damage the tableau."""
        named = qubits_of([Pair(targets["target_mask"], targets["target_offset"])])
        control = qubits_of([Pair(conds["cond_mask"], conds["cond_offset"])])
        if set(named) & set(control) and not self._errs(0.1):
            return conds | {"cond_mask": 0}
        return conds

    def _cond_flag(self) -> int:
        if self.steady:
            return self.rng.choice((0, 0, 0, 1, 1, -1))
        return super()._cond_flag()

    # Gates.

    def _gate(self) -> Record:
        words = self._targets() | self._seldom_conds()
        return self._record(self.rng.choice(FREE_GATES), **words, cond_flag=self._cond_flag())

    def _flip(self) -> Record:
        targets = self._targets()
        words = targets | self._apart(targets, self._conds())
        if self._errs(0.03):
            words |= {"cond_mask": targets["target_mask"], "cond_offset": targets["target_offset"]}
        return self._record(opcodes.X, **words, cond_flag=self._cond_flag())

    def _z_words(self) -> dict[str, int]:
        """A Z on targets with one control, or without targets on two controls."""
        targets, conds = self._targets(self.rng.choice((0, 1, 2))), self._conds()
        if targets["target_mask"] == 0:
            conds = self._conds(3 if self._errs(0.2) else self.rng.choice((1, 2, 2)))
        return targets | conds

    def _z(self) -> Record:
        return self._record(opcodes.Z, **self._z_words(), cond_flag=self._cond_flag())

    def _turn(self) -> Record:
        angle = self.rng.choice(QUARTERS)
        words = self._z_words() if angle == 180.0 else self._targets() | self._seldom_conds()
        if self._errs(0.05):
            angle = self.rng.choice((90.5, 45.0, 0.0, 270.0, math.nan))
        low = self.rng.choice((opcodes.PHASE, opcodes.RZ))
        return self._record(low, **words, angle=angle, cond_flag=self._cond_flag())

    def _swap(self) -> Record:
        bits_wanted = self.rng.choice((1, 3)) if self._errs(0.1) else 2
        words = self._targets(bits_wanted) | self._seldom_conds()
        return self._record(opcodes.SWAP, **words, cond_flag=self._cond_flag())

    # Pauli products. Bases that differ by less than a word let their entries overlap.

    def _product(self) -> dict[str, int]:
        count = self.rng.choice((0, 1, 1, 2, 4, 20))
        targets, conds = self._targets(count), self._conds(self.rng.choice((0, 1, 2, 4, 20)))
        if self.rng.random() < 0.5 and conds["cond_mask"] and targets["target_mask"]:
            conds["cond_offset"] = targets["target_offset"]
            conds["cond_mask"] = targets["target_mask"] & self.rng.getrandbits(64)
        return targets | conds

    def _ppr(self) -> Record:
        angle = self.rng.choice((*EDGE_ANGLES, *WRONG_ANGLES) if self._errs(0.1) else EIGHTHS)
        condition = 1 if self._errs(0.01) else 0
        flags = {"cond_flag": self._cond_flag(), "read_flag": condition}
        return self._record(opcodes.PPR, **self._product(), angle=angle, **flags)

    def _ppm(self) -> Record:
        flags = {"cond_flag": self._cond_flag(), "read_flag": self._flag()}
        return self._record(opcodes.PPM, **self._product(), angle=self.rng.choice(SIGNS), **flags)

    # Measurements.

    def _read(self) -> Record:
        flags = {"cond_flag": self._cond_flag(), "read_flag": self._flag()}
        return self._record(opcodes.READ, **self._targets(), **self._conds(), **flags)

    def _write(self) -> Record:
        """A write with its values at the same offset or another one, with or without flags."""
        words = self._targets()
        offset = words["target_offset"]
        if self.rng.random() < 0.3:
            offset = (offset + self.rng.randint(-70, 70)) & WORD
        value = self.rng.choice((0, WORD, self.rng.getrandbits(64)))
        values = {"cond_mask": value, "cond_offset": offset, "cond_neg_mask": self._mask()}
        flags = {"cond_flag": self._cond_flag(), "read_flag": self.rng.choice((0, self._flag()))}
        return self._record(opcodes.WRITE, **words, **values, **flags)

    def _free(self) -> Record:
        words = self._targets() | self._conds()
        return self._record(
            opcodes.FREE, **words, cond_flag=self._cond_flag(), read_flag=self._flag()
        )

    # The rest.

    def _extend(self) -> Record:
        words = self._targets(self.rng.choice((0, 1, 1, 2))) | self._conds()
        return self._record(opcodes.EXTEND, **words, cond_flag=self._cond_flag())

    def _ignored(self) -> Record:
        words = self._targets() | self._conds()
        return self._record(self.rng.choice(IGNORED), **words, cond_flag=self._cond_flag())

    def _reset(self) -> Record:
        return self._record(opcodes.RESET, target_mask=random_width(self.rng), cond_flag=-1)

    def _failing(self) -> Record:
        low = self.rng.choice((*REFUSED, opcodes.CALLBACK, opcodes.JUMP_BACK, opcodes.LABEL, None))
        if low is None:
            return Record(self.rng.choice(ODD_OPCODES), target_mask=self._mask())
        words = self._targets() | self._conds(1)
        return self._record(low, **words, cond_flag=self._cond_flag(), read_flag=self._flag())


def gate_run(rng: random.Random, num_qubits: int, length: int) -> list[Record]:
    """About `length` gates that are valid on every register of this width."""
    return [record for _ in steps(rng, length) for record in one_gate(rng, num_qubits)]


def one_gate(rng: random.Random, num_qubits: int) -> list[Record]:
    low = rng.choice(
        (
            *FREE_GATES,
            opcodes.X,
            opcodes.X,
            opcodes.X,
            opcodes.Z,
            opcodes.Z,
            opcodes.SWAP,
            opcodes.PPR,
        )
    )
    a, b = rng.sample(range(num_qubits), 2) if num_qubits > 1 else (0, 0)
    words: dict[str, int] = {"target_mask": 1, "target_offset": a}
    if low == opcodes.PPR:
        return [pauli_rotation(rng, a, min(num_qubits - a, 4))]
    if low == opcodes.SWAP:
        first = tagged(opcodes.EXTEND, target_mask=1, target_offset=b)
        return [first, tagged(low, **words)] if a != b else []
    if low in (opcodes.X, opcodes.Z) and a != b and rng.random() < 0.8:
        words |= {"cond_mask": 1, "cond_offset": b}
    elif rng.random() < 0.2:
        words["target_mask"] = rng.getrandbits(min(num_qubits - a, 64))
    return [tagged(low, **words)]


def pauli_rotation(rng: random.Random, base: int, width: int) -> Record:
    """A rotation about a product on qubits from `base` on. Its pivot is below `width`."""
    xs, zs = rng.getrandbits(width), rng.getrandbits(width)
    words = {"target_mask": xs, "target_offset": base, "cond_mask": zs, "cond_offset": base}
    return tagged(opcodes.PPR, **words, angle=rng.choice(EIGHTHS))
