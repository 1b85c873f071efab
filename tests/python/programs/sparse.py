"""Random records, states and calls for the sparse filter: mostly ordinary, sometimes unusual."""

from __future__ import annotations

import math
import random
from collections.abc import Callable

import numpy as np

from models import opcodes
from models.sparse import IGNORED, MAX_QUBITS
from models.wire import WORD, Record, set_bits, signed, tagged
from programs.bit import JUMPS, NOISE, ODD_FLAGS, ODD_OPCODES
from programs.dense import ROOTS, angle, random_flag, some_of
from support.dense import Vector

# Qubits that may be in superposition. This bounds the length of the list.
MAX_MIXED = 7
MAX_TERMS = 200

NOT_GATES = (opcodes.X, opcodes.X, opcodes.LELBOW, opcodes.RELBOW)
DIAGONALS = (
    opcodes.Z,
    opcodes.T_INV,
    opcodes.S_INV,
    opcodes.T,
    opcodes.S,
    opcodes.PHASE,
    opcodes.PHASE,
)
PAIR_GATES = (*(opcodes.H,) * 8, *ROOTS, opcodes.Y, opcodes.RX, opcodes.RY, opcodes.RY, opcodes.RZ)
ODD_ANGLES = (math.nan, math.inf, -math.inf, 1e308, 5e-324, 1e300, -1e-300)
NEAR_THRESHOLD = (1e-25) ** 0.5
ODD_PARTS = (
    NEAR_THRESHOLD,
    math.nextafter(NEAR_THRESHOLD, 1.0),
    math.nextafter(NEAR_THRESHOLD, 0.0),
    -0.0,
    0.0,
    5e-324,
    1e-13,
)
WILD_PARTS = (math.nan, math.inf, -math.inf, 1e200)
LIMITS = (0.0, -0.0, 5e-324, 0.25, 0.5, 1.0, -1.0, math.nan, math.inf)


def random_width(rng: random.Random) -> int:
    """A register size: small or large, rarely 0."""
    few, many = rng.randint(1, 8), rng.randint(1, MAX_QUBITS)
    return rng.choice((0, 1, 2, 32, 33, MAX_QUBITS, *(few, many) * 7))


class SparseSource:
    """Draws records for a register of some width. The caller reports changes of the width."""

    def __init__(self, rng: random.Random, num_qubits: int) -> None:
        self.rng = rng
        self.resize(num_qubits)
        self._kinds: dict[Callable[[], Record], int] = {
            self._flip: 14,
            self._swap: 6,
            self._diagonal: 13,
            self._pair_gate: 22,
            self._ppr: 6,
            self._ppm: 5,
            self._read: 7,
            self._write: 4,
            self._clear: 3,
            self._free: 3,
            self._nand: 2,
            self._event_marker: 2,
            self._jump: 1,
            self._label: 3,
            self._ignored: 2,
            self._reset: 1,
            self._failing: 1,
        }

    def resize(self, num_qubits: int) -> None:
        """Draws records for a register of this width from now on."""
        self.num_qubits = num_qubits
        self.register = (1 << num_qubits) - 1
        qubits = self.rng.sample(range(num_qubits), min(num_qubits, MAX_MIXED))
        self.mixed = sum(1 << qubit for qubit in qubits)

    def record(self) -> Record:
        kinds = self._kinds
        return self.rng.choices(list(kinds), weights=list(kinds.values()))[0]()

    def replacement(self) -> Record:
        """A write of the whole register, which leaves one term."""
        return self._record(opcodes.WRITE, target_mask=WORD, cond_mask=self.rng.getrandbits(64))

    # Words.

    def _record(self, low: int, **words: int | float) -> Record:
        """A record of the engine's tag with arbitrary unused words."""
        noise = self.rng.getrandbits(8) * NOISE
        unread = {"target_offset": noise >> 32, "cond_offset": noise, "reserved_a": noise}
        return tagged(low, **(unread | words))

    def _few_of(self, mask: int, count: int) -> int:
        bits = list(set_bits(mask))
        return sum(self.rng.sample(bits, min(count, len(bits))))

    def _beyond(self) -> int:
        """Bits above the register, which must have no effect."""
        above = WORD & ~self.register
        return self.rng.choice((*(0,) * 6, above, self._few_of(above, 2)))

    def _mask(self) -> int:
        """Any qubits, those that may be in superposition more often."""
        odd = self.rng.random()
        if odd < 0.1:
            return self.rng.choice((0, WORD, self.register, 1 << 63, self.rng.getrandbits(64)))
        source = self.mixed if odd < 0.6 else self.register
        return self._few_of(source, self.rng.choice((1, 1, 1, 2, 3))) | self._beyond()

    def _mixed_mask(self) -> int:
        count = self.rng.choice((0, 1, 1, 1, 1, 2, 2, 3))
        return self._few_of(self.mixed, count) | self._beyond()

    def _conds(self, targets: int) -> dict[str, int]:
        """Controls, mostly different from the targets, with arbitrary negations."""
        conds = self._few_of(self.mixed, self.rng.choice((0, 0, 0, 1, 1, 2))) & ~targets
        odd = self.rng.random()
        if odd < 0.15:
            conds = self._mask()
        negs = some_of(self.rng, conds)
        if 0.1 < odd < 0.25:
            negs |= some_of(self.rng, targets) | some_of(self.rng, self.mixed)
        return {"cond_mask": conds, "cond_neg_mask": negs, "cond_flag": random_flag(self.rng)}

    def _angle(self) -> float:
        odd = self.rng.random()
        if odd < 0.015:
            return self.rng.choice(ODD_ANGLES)
        return self.rng.choice((0.0, -0.0)) if odd < 0.03 else angle(self.rng)

    def _flag(self) -> int:
        odd = self.rng.random()
        if odd < 0.02:
            return self.rng.choice(ODD_FLAGS)
        return self.rng.randint(-30, 30)

    # Gates.

    def _gate(self, low: int, targets: int) -> Record:
        words = self._conds(targets)
        return self._record(
            low, target_mask=targets, **words, angle=self._angle(), read_flag=self._flag()
        )

    def _flip(self) -> Record:
        return self._gate(self.rng.choice(NOT_GATES), self._mask())

    def _swap(self) -> Record:
        two = self._few_of(self.register, 2)
        return self._gate(opcodes.SWAP, two if self.rng.random() < 0.7 else self._mask())

    def _diagonal(self) -> Record:
        record = self._gate(self.rng.choice(DIAGONALS), self._mask())
        return record._replace(target_mask=0) if self.rng.random() < 0.2 else record

    def _pair_gate(self) -> Record:
        return self._gate(self.rng.choice(PAIR_GATES), self._mixed_mask())

    def _product(self) -> dict[str, int]:
        xs = self._mixed_mask()
        return {"target_mask": xs, "cond_mask": some_of(self.rng, xs) | self._mask()}

    def _ppr(self) -> Record:
        product = self._product()
        conds = self._conds(product["target_mask"] | product["cond_mask"])
        condition = signed(conds.pop("cond_mask"))
        return self._record(
            opcodes.PPR, **product, **conds, angle=self._angle(), read_flag=condition
        )

    # Measurements and flags.

    def _ppm(self) -> Record:
        sign = self.rng.choice((1.0, -1.0, -1.0, -1.5, 0.0, -0.5, -2.0))
        words = self._product() | {"cond_flag": random_flag(self.rng)}
        return self._record(opcodes.PPM, **words, angle=sign, read_flag=self._flag())

    def _measurement(self, low: int, **words: int) -> Record:
        condition = {"cond_flag": random_flag(self.rng), "cond_mask": self.rng.getrandbits(64)}
        return self._record(low, **({"target_mask": self._mask()} | condition | words))

    def _read(self) -> Record:
        return self._measurement(opcodes.READ, read_flag=self._flag())

    def _write(self) -> Record:
        first = self.rng.choice((0, self._flag())) & WORD
        return self._measurement(opcodes.WRITE, read_flag=self._flag(), target_offset=first)

    def _clear(self) -> Record:
        return self._measurement(opcodes.CLEAR, read_flag=self._flag())

    def _free(self) -> Record:
        return self._measurement(opcodes.FREE, read_flag=random_flag(self.rng))

    def _nand(self) -> Record:
        a, b = self._flag() & WORD, self._flag() & WORD
        flags = {"cond_flag": random_flag(self.rng), "read_flag": self._flag()}
        return self._record(opcodes.FLAG_NAND, target_mask=a, cond_mask=b, **flags)

    # The rest.

    def _event_marker(self) -> Record:
        low = self.rng.choice((*opcodes.OPEN_EVENTS, *opcodes.CLOSE_EVENTS))
        return self._record(low, angle=self.rng.choice((0.0, 1.0, 1.75, 2.0**63)))

    def _jump(self) -> Record:
        opcode = self._record(opcodes.JUMP_FWD).opcode
        if self.rng.random() < 0.2:
            opcode = self.rng.choice(JUMPS)
        words = {"cond_mask": self._mask(), "cond_flag": random_flag(self.rng)}
        return Record(opcode, target_mask=self.rng.choice((0, 1, 1, 2)), **words)

    def _label(self) -> Record:
        return self._record(opcodes.LABEL, target_mask=self.rng.choice((0, 1, 1, 1, 2)))

    def _ignored(self) -> Record:
        return self._gate(self.rng.choice(IGNORED), self._mask())

    def _reset(self) -> Record:
        if self.rng.random() < 0.2:
            return self._record(opcodes.RESET, target_mask=self.rng.choice((64, 65, 1 << 32, WORD)))
        return self._record(opcodes.RESET, target_mask=random_width(self.rng), cond_flag=-1)

    def _failing(self) -> Record:
        low = self.rng.choice(
            (opcodes.EXTEND, opcodes.CALLBACK, opcodes.JUMP_BACK, opcodes.LABEL, None)
        )
        if low is None:
            return Record(self.rng.choice(ODD_OPCODES), target_mask=self._mask())
        return self._record(low, cond_mask=self._few_of(self.register, 1), read_flag=self._flag())


def random_part(rng: random.Random, wildness: float) -> float:
    odd = rng.random()
    if odd < wildness:
        return rng.choice(WILD_PARTS)
    return rng.choice(ODD_PARTS) if odd < 0.4 else rng.choice((1.0, 0.5, rng.gauss(0.0, 1.0)))


def random_state(rng: random.Random, num_qubits: int) -> Vector:
    """Amplitudes to push, many of them 0 or nearly 0, of any length."""
    size = 1 << min(num_qubits, rng.randint(0, 6))
    length = rng.choice((size, size, size, rng.randint(0, 64)))
    wildness = rng.choice((0.0, 0.0, 0.03))
    parts = [random_part(rng, wildness) for _ in range(2 * length)]
    total = sum(part * part for part in parts)
    if rng.random() < 0.5 and total > 0.0:
        parts = [part / math.sqrt(total) for part in parts]
    # A slice because NumPy's versions differ in the stride of an array that is made empty.
    state: Vector = np.array([*parts, 0.0, 0.0]).view(np.complex128)[:-1]
    return state
