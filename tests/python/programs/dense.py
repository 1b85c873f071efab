"""Random records and programs for a dense register, with textbook or arbitrary masks."""

from __future__ import annotations

import random

from models import opcodes
from models.wire import WORD, Record, signed, tagged
from programs.drawn import steps

NOT_GATES = (opcodes.X, opcodes.LELBOW, opcodes.RELBOW)
ROOTS = (opcodes.ROOTX, opcodes.ROOTX_INV, opcodes.ROOTY, opcodes.ROOTY_INV)
PHASES = (opcodes.PHASE, opcodes.T, opcodes.S, opcodes.Z, opcodes.T_INV, opcodes.S_INV)
GATES = (
    *NOT_GATES,
    opcodes.Y,
    opcodes.H,
    *ROOTS,
    opcodes.RX,
    opcodes.RY,
    opcodes.RZ,
    *PHASES,
    opcodes.SWAP,
    opcodes.PPR,
)
ANGLES = (0.0, 30.0, 45.0, 90.0, -90.0, 180.0, 360.0, 540.0, 1e-3, 1e6)


def some_of(rng: random.Random, mask: int) -> int:
    """A random part of a mask."""
    return mask & rng.getrandbits(64)


def angle(rng: random.Random) -> float:
    return rng.choice((*ANGLES, *(rng.uniform(-400.0, 400.0),) * 10))


def as_record(low: int, angle: float, targets: int, conds: int, negs: int, flag: int) -> Record:
    """A gate with these masks. A Pauli rotation has its controls in the word `read_flag`."""
    words = tagged(low, targets, conds, angle, flag, 0, negs)
    return words._replace(cond_mask=0, read_flag=signed(conds)) if low == opcodes.PPR else words


def tidy_gate(rng: random.Random, low: int, num_qubits: int) -> Record:
    """A textbook gate: targets and controls lie in the register and are different qubits."""
    qubits = rng.sample(range(num_qubits), num_qubits)
    count = 2 if low == opcodes.SWAP else rng.choice((1, 1, 2, 3))
    targets = sum(1 << qubit for qubit in qubits[:count])
    conds = sum(1 << qubit for qubit in qubits[count : count + rng.choice((0, 1, 2))])
    record = as_record(low, angle(rng), targets, conds, some_of(rng, conds), 0)
    return with_product(rng, record, num_qubits) if low == opcodes.PPR else record


def with_product(rng: random.Random, rotation: Record, num_qubits: int) -> Record:
    """Gives the rotation a product: X, Y or Z on each target, and Z on other qubits."""
    register = (1 << num_qubits) - 1
    letters = rotation.target_mask
    xs = some_of(rng, letters)
    zs = (letters & ~xs) | some_of(rng, xs) | some_of(rng, some_of(rng, register))
    return rotation._replace(target_mask=xs, cond_mask=zs)


def loose_gate(rng: random.Random, low: int, num_qubits: int) -> Record:
    """A gate with arbitrary masks whose result does not depend on the block size.

    Without negations outside the controls, and without a rotation's controls among its Xs.
    """
    record = tidy_gate(rng, low, num_qubits)
    odd = rng.random()
    if odd < 0.1:
        return record._replace(target_mask=0)
    if odd < 0.2:
        return record._replace(target_mask=record.target_mask | 0xF << num_qubits)
    if odd < 0.4 and low != opcodes.PPR:
        conds = rng.getrandbits(num_qubits)
        return record._replace(cond_mask=conds, cond_neg_mask=some_of(rng, conds))
    return record


def wild_mask(rng: random.Random, num_qubits: int) -> int:
    part = rng.getrandbits(num_qubits) & rng.getrandbits(num_qubits)
    beyond = rng.choice((0, 0, 0, 0, 1 << num_qubits, 1 << 63, WORD << num_qubits & WORD))
    return part | beyond


def wild_gate(rng: random.Random, low: int, num_qubits: int) -> Record:
    """A gate with arbitrary masks."""
    targets, conds, negs = (wild_mask(rng, num_qubits) for _ in range(3))
    conds = rng.choice((0, conds, conds & (1 << num_qubits) - 1))
    record = tagged(low, targets, conds, angle(rng), cond_neg_mask=negs)
    if low == opcodes.PPR:
        return record._replace(read_flag=signed(rng.choice((0, wild_mask(rng, num_qubits)))))
    return record


def random_flag(rng: random.Random) -> int:
    return 0 if rng.random() < 0.7 else rng.choice((-1, 1)) * rng.randint(1, 24)


def gate_program(rng: random.Random, num_qubits: int, length: int) -> list[Record]:
    """Gates only, whose results do not depend on the block size."""
    return [loose_gate(rng, rng.choice(GATES), num_qubits) for _ in steps(rng, length)]


def wild_program(rng: random.Random, num_qubits: int, length: int) -> list[Record]:
    """Gates with arbitrary masks."""
    return [wild_gate(rng, rng.choice(GATES), num_qubits) for _ in steps(rng, length)]


class ProgramSource:
    """Draws programs with gates, measurements, writes, frees and batches of Pauli products."""

    def __init__(self, rng: random.Random, num_qubits: int) -> None:
        self.rng = rng
        self.num_qubits = num_qubits
        self._kinds = {
            self._gate: 70,
            self._read: 8,
            self._write: 6,
            self._free: 6,
            self._ppm: 8,
            self._batch: 3,
            self._marker: 3,
            self._whole: 1,
        }

    def program(self, length: int) -> list[Record]:
        return [record for _ in steps(self.rng, length) for record in self._step()]

    def _step(self) -> list[Record]:
        kinds = self._kinds
        return self.rng.choices(list(kinds), weights=list(kinds.values()))[0]()

    def _record(self, low: int, **words: int | float) -> list[Record]:
        return [tagged(low, **words, cond_flag=random_flag(self.rng))]

    def _mask(self) -> int:
        """Some qubits of the register, rarely all."""
        return some_of(self.rng, (1 << self.num_qubits) - 1)

    def _partial_mask(self) -> int:
        return self._mask() & ~(1 << self.rng.randrange(self.num_qubits))

    def _gate(self) -> list[Record]:
        gate = loose_gate(self.rng, self.rng.choice(GATES), self.num_qubits)
        return [gate._replace(cond_flag=random_flag(self.rng))]

    def _read(self) -> list[Record]:
        flag = self.rng.randint(-30, 30)
        return self._record(opcodes.READ, target_mask=self._partial_mask(), read_flag=flag)

    def _write(self) -> list[Record]:
        low, flag = self.rng.choice((opcodes.WRITE, opcodes.CLEAR)), self.rng.randint(-30, 30)
        masks = {"target_mask": self._partial_mask(), "cond_mask": self._mask()}
        return self._record(low, **masks, read_flag=flag)

    def _whole(self) -> list[Record]:
        register = (1 << self.num_qubits) - 1
        return self._record(opcodes.WRITE, target_mask=register, cond_mask=self._mask())

    def _free(self) -> list[Record]:
        checks, code = self.rng.choice((0, 0x10, 0x1F)), self.rng.getrandbits(40)
        mask = self._partial_mask()
        return self._record(opcodes.FREE, target_mask=mask, cond_mask=checks, read_flag=code)

    def _product(self) -> dict[str, int]:
        xs, zs = self._mask(), self._mask()
        return {"target_mask": xs, "cond_mask": zs if xs | zs else 1}

    def _ppm(self) -> list[Record]:
        sign, flag = self.rng.choice((1.0, -1.0, -1.5)), self.rng.randint(-30, 30)
        return self._record(opcodes.PPM, **self._product(), angle=sign, read_flag=flag)

    def _batch(self) -> list[Record]:
        size = self.rng.choice((1, 2, 3))
        zs = [self._mask() or 1 for _ in range(size)]
        return [tagged(opcodes.PCP, cond_mask=z, angle=1000.0 * size + k) for k, z in enumerate(zs)]

    def _marker(self) -> list[Record]:
        low = self.rng.choice((*opcodes.OPEN_EVENTS, *opcodes.CLOSE_EVENTS))
        return self._record(low, angle=float(self.rng.randint(0, 3)))
