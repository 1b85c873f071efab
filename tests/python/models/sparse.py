"""A model of the sparse filter: runs records; has its list of terms, flags and error texts.

Written independently of the engine. It rounds each product and sum as the engine does, so that the
two can be compared bit for bit. Fast enough for a few hundred terms.
"""

from __future__ import annotations

import math
from collections.abc import Callable, Sequence

from models import dense, opcodes
from models.arithmetic import (
    Amplitude,
    Generator,
    flipped,
    has_zero_bits,
    probability,
    radians,
    times,
)
from models.dense_block import Matrix
from models.program import ModelError, ProgramModel
from models.sparse_terms import (
    ALWAYS,
    HADAMARD_FORMULA,
    Condition,
    PairFormula,
    Term,
    TermList,
    complex_formula,
    real_formula,
)
from models.wire import WORD, Record, set_bits, signed

MAX_QUBITS = 63
NO_MATCH = "qc.postselect() no non-zero terms match the desired value."
NO_POSTSELECT_MASK = "qc.postselect() must specify at least one qubit to measure."
NO_PEEK_MASK = "qc.peek_read_probability() must specify at least one qubit to measure."
TOO_MANY_QUBITS = "This quick sparse_sv prototype just handles 64 qubits."
PARTIAL_PUSH = "Partial push_state is not yet implemented for sparse_sv."
NO_EXTENSION = "qc.extend has not been implemented for the State-vector QPU sim."
IGNORED = (*opcodes.MARKERS, opcodes.PCP)
# T and S are computed from their angle; their inverses are constants.
COMPUTED_PHASES = {opcodes.T: 45.0, opcodes.S: 90.0}
QUARTER_BACK, QUARTER_ON = (6.123233995736766e-17, -1.0), (6.123233995736766e-17, 1.0)
FACTORS = {opcodes.T_INV: (0.7071067811865476, -0.7071067811865475), opcodes.S_INV: QUARTER_BACK}


def short_array(operation: str, needed: int, given: int) -> ModelError:
    return ModelError(
        f"Error: {operation}() needs an array of {needed} amplitudes, but was given {given}."
    )


def cosine_sine(angle: float) -> tuple[float, float]:
    """Cosine and sine of an angle in radians; NaN for infinities, which Python refuses."""
    return (math.cos(angle), math.sin(angle)) if math.isfinite(angle) else (math.nan, math.nan)


def diagonal(cosine: float, sine: float) -> Matrix:
    return (cosine, -sine), (0.0, 0.0), (0.0, 0.0), (cosine, sine)


def rotation(low: int, degrees: float) -> PairFormula:
    cosine, sine = cosine_sine(radians(degrees) * 0.5)
    if low == opcodes.RY:
        return real_formula(cosine, sine)
    if low == opcodes.RZ:
        return complex_formula(diagonal(cosine, sine))
    return complex_formula(((cosine, 0.0), (0.0, -sine), (0.0, -sine), (cosine, 0.0)))


def packed(key: int, mask: int) -> int:
    """The bits of the key at the positions of the mask, packed."""
    return sum(bool(key & bit) << place for place, bit in enumerate(set_bits(mask)))


class SparseModel(ProgramModel):
    """One sparse filter."""

    def __init__(self, generator: Generator) -> None:
        super().__init__()
        self.generator = generator
        self.num_qubits = 0
        self.register = 0
        self.prune_threshold = 0.0
        self.list = TermList()
        self._calls = self._dispatch_table()

    @property
    def terms(self) -> list[Term]:
        """The stored terms in their order, with doubled indices for keys."""
        return self.list.terms

    def _dispatch_table(self) -> dict[int, Callable[[Record], object]]:
        """The operations whose classical condition is in the word `cond_flag`."""
        gates = dict.fromkeys((opcodes.X, opcodes.LELBOW, opcodes.RELBOW), self._not)
        gates |= dict.fromkeys((opcodes.RX, opcodes.RY, opcodes.RZ), self._rotation)
        gates |= dict.fromkeys(dense.FIXED_MATRICES, self._fixed_matrix)
        gates |= dict.fromkeys(FACTORS, self._factor)
        gates |= dict.fromkeys((opcodes.PHASE, *COMPUTED_PHASES), self._phase)
        gates |= {opcodes.Z: self._flip_signs, opcodes.H: self._hadamard, opcodes.SWAP: self._swap}
        measurements = {
            opcodes.READ: self._read,
            opcodes.WRITE: self._write,
            opcodes.CLEAR: self._clear,
        }
        return {**gates, **measurements, opcodes.PPR: self._ppr, opcodes.PPM: self._ppm}

    def _operate(self, low: int, record: Record) -> bool:
        if low == opcodes.EXTEND:
            raise ModelError(NO_EXTENSION)
        if low == opcodes.RESET:
            self._reset(record.target_mask)
        elif low == opcodes.FREE:
            # Free has its condition in the word `read_flag`.
            if self.flags.holds(record.read_flag):
                self._clear(record)
        elif low in self._calls:
            if self.flags.holds(record.cond_flag):
                self._calls[low](record)
        else:
            return low in IGNORED
        return True

    def _reset(self, num_qubits: int) -> None:
        if num_qubits > MAX_QUBITS:
            raise ModelError(TOO_MANY_QUBITS)
        self.num_qubits, self.register = num_qubits, (1 << num_qubits) - 1
        self.prune_threshold = 1e-25
        self.list.replace(0)

    def _key(self, mask: int) -> int:
        return (mask & self.register) * 2

    # Gates.

    def _condition(self, r: Record) -> Condition:
        return Condition(self._key(r.cond_mask), self._key(r.cond_neg_mask))

    def _not(self, r: Record) -> None:
        self.list.flip(self._key(r.target_mask), self._condition(r))

    def _swap(self, r: Record) -> None:
        lowest = r.target_mask & -r.target_mask
        a, b = self._key(lowest), self._key(r.target_mask ^ lowest)
        if r.target_mask:
            self.list.flip(a, Condition(b, 0))
            self.list.flip(b, self._condition(r).joined_by(a))
            self.list.flip(a, Condition(b, 0))

    def _each_phase(self, r: Record, formula: Callable[[Amplitude], Amplitude]) -> None:
        """One walk for each target. Without targets, the lowest control is the target."""
        targets, conds = self._key(r.target_mask), self._condition(r)
        if not targets:
            targets = conds.mask & -conds.mask
        for target in set_bits(targets):
            self.list.change(conds.joined_by(target), formula)

    def _flip_signs(self, r: Record) -> None:
        self._each_phase(r, flipped)

    def _factor(self, r: Record) -> None:
        factor = FACTORS[r.opcode & 0xFFFFFFFF]
        self._each_phase(r, lambda amplitude: times(amplitude, factor))

    def _phase(self, r: Record) -> None:
        degrees = COMPUTED_PHASES.get(r.opcode & 0xFFFFFFFF, r.angle)
        if degrees != 0.0:
            factor = cosine_sine(radians(degrees))
            self._each_phase(r, lambda amplitude: times(amplitude, factor))

    def _mix(self, r: Record, formula: PairFormula) -> None:
        self.list.mix(self._key(r.target_mask), self._condition(r), formula)

    def _hadamard(self, r: Record) -> None:
        self._mix(r, HADAMARD_FORMULA)

    def _fixed_matrix(self, r: Record) -> None:
        self._mix(r, complex_formula(dense.FIXED_MATRICES[r.opcode & 0xFFFFFFFF]))

    def _rotation(self, r: Record) -> None:
        self._mix(r, rotation(r.opcode & 0xFFFFFFFF, r.angle))

    # Pauli products.

    def _ladder(self, product: int, pivot: int, backward: bool) -> None:
        """Adds the parity of the product's other qubits to the pivot, or removes it again."""
        below = list(set_bits(product & (pivot - 1)))
        for bit in reversed(below) if backward else below:
            self.list.flip(self._key(pivot), Condition(self._key(bit), 0))

    def _turn(self, ys: int, factor: Amplitude) -> None:
        for bit in set_bits(self._key(ys)):
            self.list.change(Condition(bit, 0), lambda amplitude: times(amplitude, factor))

    def _into_z_basis(self, x: int, z: int, factor: Amplitude) -> None:
        self._turn(x & z, factor)
        self.list.mix(self._key(x & z), ALWAYS, HADAMARD_FORMULA)
        self.list.mix(self._key(x & ~z), ALWAYS, HADAMARD_FORMULA)

    def _out_of_z_basis(self, x: int, z: int, factor: Amplitude) -> None:
        self.list.mix(self._key(x & ~z), ALWAYS, HADAMARD_FORMULA)
        self.list.mix(self._key(x & z), ALWAYS, HADAMARD_FORMULA)
        self._turn(x & z, factor)

    def _ppr(self, r: Record) -> None:
        x, z = r.target_mask & self.register, r.cond_mask & self.register
        # An empty product rotates qubit 0.
        top = 1 << max((x | z).bit_length() - 1, 0)
        conds = Condition(self._key(r.read_flag & WORD), self._key(r.cond_neg_mask))
        turn = diagonal(*cosine_sine(radians(2 * r.angle) * 0.5))
        self._into_z_basis(x, z, cosine_sine(radians(-90.0)))
        self._ladder(x | z, top, backward=False)
        self.list.mix(self._key(top), conds, complex_formula(turn))
        self._ladder(x | z, top, backward=True)
        self._out_of_z_basis(x, z, cosine_sine(radians(90.0)))

    def _ppm(self, r: Record) -> None:
        x, z = r.target_mask & self.register, r.cond_mask & self.register
        outcome = self._measure_product(x, z, int(r.angle) == -1) if x | z else 0
        self.flags.set(r.read_flag, outcome)

    def _measure_product(self, x: int, z: int, inverted: bool) -> int:
        pivot = 1 << (x | z).bit_length() - 1
        wrap = self._key(pivot) if inverted else 0
        self._into_z_basis(x, z, QUARTER_BACK)
        self._ladder(x | z, pivot, backward=False)
        self.list.flip(wrap, ALWAYS)
        value = self._measure(pivot)
        self.list.flip(wrap, ALWAYS)
        self._ladder(x | z, pivot, backward=True)
        self._out_of_z_basis(x, z, QUARTER_ON)
        return int(value != 0)

    # Measurement.

    def _measure(self, targets: int) -> int:
        key = self.list.sample(self.generator.zero_to_one())
        value = (key & targets * 2) >> 1
        self.postselect(value, targets)
        return value

    def _store(self, flag: int, targets: int, value: int) -> None:
        if flag:
            for place, bit in enumerate(set_bits(targets)):
                self.flags.set(signed(flag + place), int(bool(value & bit)))

    def _read(self, r: Record) -> None:
        targets = r.target_mask & self.register
        if targets:
            self._store(r.read_flag, targets, self._measure(targets))

    def _force(self, value: int, targets: int, flag: int) -> None:
        if targets == self.register:
            self.list.replace(value * 2)
        elif targets:
            found = self._measure(targets)
            self._store(flag, targets, found)
            self.list.flip(((found ^ value) & targets) * 2, ALWAYS)

    def _write(self, r: Record) -> None:
        # The word `target_offset` has the first flag here.
        value, targets = r.cond_mask & self.register, r.target_mask & self.register
        self._force(value, targets, signed(r.target_offset))

    def _clear(self, r: Record) -> None:
        self._force(0, r.target_mask & self.register, 0)

    def postselect(self, value: int, mask: int) -> None:
        if mask == 0:
            raise ModelError(NO_POSTSELECT_MASK)
        total = self.list.project(self._key(value), self._key(mask))
        if total == 0.0:
            raise ModelError(NO_MATCH)
        if not math.isnan(total):
            self.list.shrink_by(total)

    def read_probability(self, value: int, mask: int, limit: float) -> float:
        if mask == 0:
            raise ModelError(NO_PEEK_MASK)
        return self.list.probability_of(self._key(value), self._key(mask), limit)

    def normalize(self) -> float:
        total = self.list.probability_of(0, 0, 0.0)
        if total > 0.0:
            self.list.shrink_by(total)
        return total

    # State transfer.

    def push(self, source: Sequence[Amplitude], mask: int) -> None:
        if mask:
            raise ModelError(PARTIAL_PUSH)
        self.list.terms = [
            Term(index * 2, amplitude)
            for index, amplitude in enumerate(source)
            if not has_zero_bits(amplitude) and not self.prune_threshold > probability(amplitude)
        ]

    def pull(self, length: int) -> list[Amplitude]:
        return self._spread([(t.key >> 1, t.amplitude) for t in self.terms], length, "pull_state")

    def pull_specific(self, mask: int, length: int) -> list[Amplitude]:
        kept, best = self._key(mask), self.list.key_of_largest()
        written = [
            (packed(term.key, kept), term.amplitude)
            for term in self.terms
            if not (term.key ^ best) & ~kept
        ]
        return self._spread(written, length, "pull_state_specific")

    def _spread(
        self, written: list[tuple[int, Amplitude]], length: int, operation: str
    ) -> list[Amplitude]:
        """An array of `length` with these entries. For a repeated index, the last entry counts."""
        needed = max((index + 1 for index, _ in written), default=0)
        if needed > length:
            raise short_array(operation, needed, length)
        found = dict(written)
        return [found.get(index, (0.0, 0.0)) for index in range(length)]

    def check(self, expected: Sequence[Amplitude], tolerance: float) -> int:
        for term in self.terms:
            index, amplitude = term.key >> 1, term.amplitude
            if index >= len(expected):
                needed = max(term.key >> 1 for term in self.terms) + 1
                raise short_array("check_state", needed, len(expected))
            if any(
                abs(got - wanted) > tolerance
                for got, wanted in zip(amplitude, expected[index], strict=True)
            ):
                return 0
        return 1
