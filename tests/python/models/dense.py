"""A model of the dense filter with one block: runs records; has amplitudes, flags and events.

Written independently of the engine. It rounds each product and sum as the engine does, so that the
two can be compared bit for bit. Fast enough for a few qubits.
"""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable

from models import opcodes
from models.arithmetic import Amplitude, Generator, has_zero_bits, radians, times
from models.dense_block import Block, Matrix, PairGate, complex2x2, exchange, hadamard, real2x2
from models.flags import FlagTable
from models.program import ModelError
from models.wire import TAG, WORD, Record, event_id, set_bits, signed

UP, DOWN = (0.5, 0.5), (0.5, -0.5)
FIXED_MATRICES: dict[int, Matrix] = {
    opcodes.ROOTX: (UP, DOWN, DOWN, UP),
    opcodes.ROOTX_INV: (DOWN, UP, UP, DOWN),
    opcodes.ROOTY: (UP, (-0.5, -0.5), UP, UP),
    opcodes.ROOTY_INV: (DOWN, DOWN, (-0.5, 0.5), DOWN),
    opcodes.Y: ((0.0, 0.0), (0.0, -1.0), (0.0, 1.0), (0.0, 0.0)),
}
FIXED_PHASES = {opcodes.T: 45.0, opcodes.S: 90.0, opcodes.T_INV: -45.0, opcodes.S_INV: -90.0}

NOT_ALLOCATED = (
    "Error: Simulated state vector data is requested, but not present. To fix this:\n"
    "        (1) Make sure qc.reset() has been called.\n"
    "        (2) Make sure a '>>state-vector-sim>>' or other filter"
    " has been added to the pipeline.\n"
    "              for example: qc = QPU();\n"
    "                    ...or: QPU(filters=['>>state-vector-sim>>', '>>buffer>>'],"
    " add_default_filters=False)"
)
NO_MATCH = "Error: qc.postselect() no nonzero terms match desired value."


def rotation(low: int, degrees: float) -> PairGate:
    half = radians(degrees) * 0.5
    cosine, sine = math.cos(half), math.sin(half)
    if low == opcodes.RY:
        return real2x2((cosine, -sine, sine, cosine))
    if low == opcodes.RX:
        return complex2x2(((cosine, 0.0), (0.0, -sine), (0.0, -sine), (cosine, 0.0)))
    return complex2x2(((cosine, -sine), (0.0, 0.0), (0.0, 0.0), (cosine, sine)))


class DenseModel:
    """One dense filter whose register, if it has one, is a single block."""

    def __init__(self, generator: Generator, debug_qubits: bool = False) -> None:
        self.generator = generator
        self.debug_qubits = debug_qubits
        self.num_qubits = 0
        self.block: Block | None = None
        self.known = 0
        self.flags = FlagTable()
        self.batch: list[tuple[int, int]] = []
        self.open_ids: list[int] = []
        self.events: list[tuple[str, str, int, list[int]]] = []
        self._calls = self._dispatch_table()

    def _dispatch_table(self) -> dict[int, Callable[[Record], object]]:
        gates = dict.fromkeys((opcodes.X, opcodes.LELBOW, opcodes.RELBOW), self._not)
        gates |= dict.fromkeys(FIXED_MATRICES, self._fixed_matrix)
        gates |= dict.fromkeys((opcodes.RX, opcodes.RY, opcodes.RZ), self._rotation)
        gates |= dict.fromkeys((opcodes.PHASE, *FIXED_PHASES), self._phase)
        gates |= {
            opcodes.H: self._hadamard,
            opcodes.Z: self._cz,
            opcodes.SWAP: self._swap,
            opcodes.PPR: self._ppr,
        }
        measurements = {
            opcodes.READ: self._read,
            opcodes.WRITE: self._write,
            opcodes.CLEAR: self._clear,
        }
        measurements |= {opcodes.FREE: self._free, opcodes.PPM: self._ppm, opcodes.PCP: self._pcp}
        events = dict.fromkeys(opcodes.OPEN_EVENTS, self._open_event)
        events |= dict.fromkeys(opcodes.CLOSE_EVENTS, self._close_event)
        return {**gates, **measurements, **events, opcodes.RESET: self._reset}

    def run(self, records: Iterable[Record]) -> None:
        """Runs the records in order. Control flow and failures have their own tests."""
        for record in records:
            assert record.opcode >> 32 == TAG
            self._calls[record.opcode & 0xFFFFFFFF](record)

    def _open_event(self, r: Record) -> None:
        self.open_ids.append(event_id(r.angle))

    def _close_event(self, r: Record) -> None:
        closed = event_id(r.angle)
        if closed in self.open_ids:
            last = len(self.open_ids) - 1 - self.open_ids[::-1].index(closed)
            del self.open_ids[last]

    @property
    def terms(self) -> list[Amplitude]:
        """All amplitudes in order of their index."""
        return self._allocated().terms

    def load(self, values: list[Amplitude]) -> None:
        """Replaces the whole state."""
        self._allocated().set_all(values)

    # The register.

    def _reset(self, r: Record) -> None:
        self.num_qubits, self.known = r.target_mask, 0
        self.block = Block(1 << self.num_qubits)
        self.block.terms[0] = (1.0, 0.0)

    def _allocated(self) -> Block:
        if self.block is None:
            raise ModelError(NOT_ALLOCATED)
        return self.block

    @property
    def register(self) -> int:
        """The mask of all qubits."""
        return (1 << self.num_qubits) - 1

    def total(self) -> float:
        block = self._allocated()
        return 0.0 if block.all_zero else block.peek_probability(0, 0, 0.0)

    def normalize(self) -> float:
        total = self.total()
        if total not in (0.0, 1.0) and self.block and not self.block.all_zero:
            self.block.normalize_by(total)
        return total

    def set_random(self) -> None:
        self.known = 0
        self._allocated().set_random(self.generator)
        self.normalize()

    def peek_probability(self, value: int, mask: int, limit: float) -> float:
        block = self._allocated()
        mask &= self.register
        return 0.0 if block.all_zero else block.peek_probability(value, mask, limit)

    # Gates. Each begins with the test of its classical condition.

    def _acts(self, cond_flag: int) -> bool:
        self._allocated()
        return self.flags.holds(cond_flag)

    def _each_target(self, r: Record, gate: PairGate) -> None:
        self.known &= ~r.target_mask
        block = self._allocated()
        conds = r.cond_mask & self.register
        for target in reversed(list(set_bits(r.target_mask & self.register))):
            if not block.all_zero:
                block.apply(target, conds, conds & r.cond_neg_mask, gate)

    def _gate(self, r: Record, gate: PairGate) -> None:
        if self._acts(r.cond_flag):
            self._each_target(r, gate)

    def _not(self, r: Record) -> None:
        self._gate(r, exchange)

    def _hadamard(self, r: Record) -> None:
        self._gate(r, hadamard)

    def _fixed_matrix(self, r: Record) -> None:
        self._gate(r, complex2x2(FIXED_MATRICES[r.opcode & 0xFFFFFFFF]))

    def _rotation(self, r: Record) -> None:
        if self._acts(r.cond_flag) and r.angle != 0.0:
            self._each_target(r, rotation(r.opcode & 0xFFFFFFFF, r.angle))

    def _diagonal_masks(self, r: Record) -> tuple[int, int]:
        """Targets and controls. Without targets, the lowest control is the target."""
        targets, conds = r.target_mask & self.register, r.cond_mask & self.register
        if not targets:
            targets = conds & -conds
            conds ^= targets
        return targets, conds

    def _cz(self, r: Record) -> None:
        if not self._acts(r.cond_flag):
            return
        targets, conds = self._diagonal_masks(r)
        for target in set_bits(targets):
            mask = target | conds
            if not self._allocated().all_zero:
                self._allocated().flip_signs(mask, r.cond_neg_mask & mask)

    def _phase(self, r: Record) -> None:
        if not self._acts(r.cond_flag):
            return
        angle = radians(FIXED_PHASES.get(r.opcode & 0xFFFFFFFF, r.angle))
        targets, conds = self._diagonal_masks(r)
        negs = (conds | targets) & r.cond_neg_mask
        for target in set_bits(targets):
            if not self._allocated().all_zero:
                self._allocated().phase(target | conds, math.sin(angle), math.cos(angle), negs)

    def _swap(self, r: Record) -> None:
        if not self._acts(r.cond_flag):
            return
        kept = self.known
        a, c = [*set_bits(r.target_mask), 0, 0][:2]
        for target, control in ((c, a), (a, c), (c, a)):
            cnot = r._replace(target_mask=target, cond_mask=r.cond_mask | control)
            self._each_target(cnot, exchange)
        if r.cond_mask:
            self.known &= ~r.target_mask
        else:
            self.known &= ~(a | c)
            self.known |= (c if kept & a else 0) | (a if kept & c else 0)

    # Pauli products.

    def _ppr(self, r: Record) -> None:
        if self._acts(r.cond_flag):
            conds = r.read_flag & WORD
            self._rotate(r.angle, r.target_mask, r.cond_mask, conds, r.cond_neg_mask)

    def _rotate(self, degrees: float, x: int, z: int, conds: int, negs: int) -> None:
        self.known &= ~(x | z)
        block = self._allocated()
        x, z, negs = x & self.register, z & self.register, negs & conds
        unmet = conds & ~negs & ~self.register  # controls on qubits outside the register
        if x | z and not unmet and not block.all_zero:
            conds, negs, angle = conds & self.register, negs & self.register, radians(degrees)
            block.rotate(x, z, conds, negs, math.sin(angle), math.cos(angle))

    def pauli_probability(self, x: int, z: int) -> float:
        block = self._allocated()
        x, z = x & self.register, z & self.register
        return 0.0 if not x | z or block.all_zero else block.pauli_probability(x, z)

    def _ppm(self, r: Record) -> None:
        if not self._acts(r.cond_flag):
            return
        block, x, z = self._allocated(), r.target_mask, r.cond_mask
        likely = self.pauli_probability(x, z)
        outcome = int(self.generator.zero_to_one() >= likely)
        if not block.all_zero:
            block.project(x, z, outcome)
        self.normalize()
        self.flags.set(r.read_flag, outcome ^ (int(r.angle) == -1))
        if (x | z).bit_count() == 1:
            self.known |= x | z

    def _pcp(self, r: Record) -> None:
        if not self._acts(r.cond_flag):
            return
        x, z = r.target_mask & self.register, r.cond_mask & self.register
        self.known &= ~(r.target_mask | r.cond_mask)
        if not x | z:
            return
        size, number = divmod(int(r.angle), 1000)
        if number == 0:
            self.batch = []
        self.batch.append((x, z))
        if number == size - 1:
            self._run_batch(size)

    def _run_batch(self, size: int) -> None:
        if len(self.batch) < size:
            raise ModelError(
                f"Error: qc.pcp() batch of {size} products has only {len(self.batch)}."
            )
        products = self.batch[:size]
        for j, (x, z) in enumerate(products):
            if any(((z & a) ^ (x & b)).bit_count() % 2 for a, b in products[:j]):
                raise ModelError("Error: qc.pcp() masks do not commute.")
        theta = 90.0 * 0.5 ** (size - 1)
        for left_out in range(size if size < 31 else 0):
            for subset in range(1 << size):
                if subset.bit_count() == left_out:
                    x = z = 0
                    for i, (px, pz) in enumerate(products):
                        x, z = (x, z) if subset >> i & 1 else (x | px, z | pz)
                    self._rotate(theta if left_out % 2 else -theta, x, z, 0, 0)

    # Measurement.

    def _random_index(self) -> int:
        total = self.total()
        draw = self.generator.zero_to_one() * total
        if total > 0 and total >= draw:
            return self._allocated().slot_at(draw)
        return self.register

    def _collapse(self, mask: int, value: int) -> None:
        if mask and not self._allocated().all_zero:
            self._allocated().collapse(mask, value)

    def _measure(self, mask: int, read_flag: int) -> int:
        value = self._random_index() & mask
        self._collapse(mask, value)
        self.normalize()
        if read_flag:
            for k, bit in enumerate(set_bits(mask)):
                self.flags.set(signed(read_flag + k), int(bool(value & bit)))
        self.known |= mask
        return value

    def _read(self, r: Record) -> None:
        if self._acts(r.cond_flag):
            self._measure(r.target_mask & self.register, r.read_flag)

    def _write(self, r: Record) -> None:
        if self._acts(r.cond_flag):
            self._force(r.cond_mask, r.target_mask, r.read_flag)

    def _clear(self, r: Record) -> None:
        self._write(r._replace(cond_mask=0, read_flag=0))

    def _force(self, value: int, targets: int, read_flag: int) -> None:
        mask, block = targets & self.register, self._allocated()
        if mask == self.register:
            if value > self.register:
                outside = f"lies outside the register of {self.num_qubits} qubits."
                raise ModelError(f"Error: qc.write() value {value} {outside}")
            block.set_zero()
            block.terms[value], block.all_zero = (1.0, 0.0), False
        else:
            wrong = (self._measure(mask, read_flag) ^ value) & mask
            self._each_target(Record(opcodes.X, target_mask=wrong), exchange)
        self.known |= mask

    def postselect(self, value: int, mask: int) -> None:
        mask &= self.register
        self._collapse(mask, value & mask)
        if self.normalize() == 0.0:
            raise ModelError(NO_MATCH)

    def _free(self, r: Record) -> None:
        if not (self.debug_qubits and r.cond_mask & 0x10):
            self._clear(r)
            return
        if r.target_mask & self.known:
            self._clear(r._replace(target_mask=r.target_mask & self.known))
        unknown = r.target_mask & ~self.known
        if unknown and self.flags.holds(r.cond_flag):
            self._assert_zero(unknown, r.read_flag)

    def _assert_zero(self, mask: int, code: int) -> None:
        if self.peek_probability(0, mask, 1.0) < 0.99999:
            text = f"Error: assert check failed: mask:{mask:x} expected value:0"
            event = ("free_nonzero_qubits", text, code & 0xFFFFFFFF, self.open_ids.copy())
            self.events.append(event)

    # State transfer.

    def push(self, source: list[Amplitude], mask: int) -> None:
        """Replaces the qubits of the mask, a contiguous run inside the register, by `source`."""
        self._force(0, mask, 0)
        block, width = self._allocated(), mask.bit_count()
        lowest = mask & -mask
        below, above = lowest - 1, self.register & ~mask & ~(lowest - 1)
        for u in range(1 << (below | above).bit_count()):
            t = ((u << width) & above) | (u & below)
            a = block.terms[t]
            if not has_zero_bits(a):
                for k, amplitude in enumerate(source):
                    block.terms[t | k * lowest] = times(a, amplitude)
                block.all_zero = False
