"""One block of amplitudes, with the kernels written as plain loops.

Masks refer to slots of the block. The block is the whole register, so a term's index is its slot.
There are no threads, no pairs of blocks and no vector lanes.
"""

from __future__ import annotations

import math
from collections.abc import Callable, Iterator, Sequence

from models.arithmetic import (
    ROOT_HALF,
    ZERO,
    Amplitude,
    Generator,
    add,
    flipped,
    fma,
    has_zero_bits,
    probability,
    scaled,
    subtract,
    times,
)

Matrix = tuple[Amplitude, Amplitude, Amplitude, Amplitude]
RealMatrix = tuple[float, float, float, float]
PairGate = Callable[[Amplitude, Amplitude], tuple[Amplitude, Amplitude]]

# The phase of a Pauli product for each number of Ys modulo 4: two factors for the parts of the
# amplitude, and two for the exchanged parts.
PHASES = (
    ((1.0, 1.0), (0.0, 0.0)),
    ((0.0, 0.0), (1.0, -1.0)),
    ((-1.0, -1.0), (0.0, 0.0)),
    ((0.0, 0.0), (-1.0, 1.0)),
)


def exchange(x: Amplitude, y: Amplitude) -> tuple[Amplitude, Amplitude]:
    return y, x


def hadamard(x: Amplitude, y: Amplitude) -> tuple[Amplitude, Amplitude]:
    return scaled(add(x, y), ROOT_HALF), scaled(subtract(x, y), ROOT_HALF)


def complex2x2(m: Matrix) -> PairGate:
    def gate(x: Amplitude, y: Amplitude) -> tuple[Amplitude, Amplitude]:
        if has_zero_bits(x) and has_zero_bits(y):
            return x, y
        return add(times(x, m[0]), times(y, m[1])), add(times(x, m[2]), times(y, m[3]))

    return gate


def real2x2(m: RealMatrix) -> PairGate:
    def gate(x: Amplitude, y: Amplitude) -> tuple[Amplitude, Amplitude]:
        if has_zero_bits(x) and has_zero_bits(y):
            return x, y
        upper = fma(m[0], x[0], m[1] * y[0]), fma(m[0], x[1], m[1] * y[1])
        lower = fma(x[0], m[2], m[3] * y[0]), fma(x[1], m[2], m[3] * y[1])
        return upper, lower

    return gate


def pauli_factor(v: Amplitude, num_ys: int) -> Amplitude:
    """`v` times the phase of a product with `num_ys` Ys. The products are exact, fused or not."""
    own, crossed = PHASES[num_ys % 4]
    return v[0] * own[0] + v[1] * crossed[0], v[1] * own[1] + v[0] * crossed[1]


class Block:
    """The amplitudes, and `all_zero`, which lets operations skip the block."""

    def __init__(self, num_terms: int) -> None:
        self.terms = [ZERO] * num_terms
        self.all_zero = False

    # Gates.

    def apply(self, target: int, conds: int, negs: int, gate: PairGate) -> None:
        """Runs the gate on all pairs whose lower slot satisfies the controls."""
        for i in range(len(self.terms)):
            if not i & target and i & conds == conds ^ negs:
                self.terms[i], self.terms[i | target] = gate(self.terms[i], self.terms[i | target])

    def flip_signs(self, mask: int, negs: int) -> None:
        for i in self._diagonal(mask, negs):
            self.terms[i] = flipped(self.terms[i])

    def phase(self, mask: int, sine: float, cosine: float, negs: int) -> None:
        if cosine == -1.0:
            self.flip_signs(mask, negs)
        elif cosine != 1.0:
            for i in self._diagonal(mask, negs):
                self.terms[i] = times(self.terms[i], (cosine, sine))

    def _diagonal(self, mask: int, negs: int) -> Iterator[int]:
        """The slots of a diagonal gate, in runs; negations outside the mask shift the start."""
        first = mask ^ negs
        run = mask & -mask
        if mask == 0:
            yield from range(len(self.terms))
            return
        for start in range(first, len(self.terms), 2 * run):
            if mask == run or start & mask == first:
                yield from range(start, min(start + run, len(self.terms)))

    # Pauli products.

    def _partners(self, x: int) -> Iterator[tuple[int, int]]:
        """Slots `i` with their partners; on the diagonal each slot is its own."""
        for i in range(len(self.terms)):
            if not i & (x & -x):
                yield i, i ^ x

    def _product(self, i: int, v: Amplitude, z: int, num_ys: int) -> Amplitude:
        return pauli_factor(flipped(v) if (i & z).bit_count() % 2 else v, num_ys)

    def rotate(self, x: int, z: int, conds: int, negs: int, sine: float, cosine: float) -> None:
        # The rotation's factor of -i is the next entry of the table.
        num_ys = (x & z).bit_count() + 1
        for i, j in self._partners(x):
            if i & conds != conds ^ negs:
                continue
            u, w = self.terms[i], self.terms[j]
            turned = self._product(i, scaled(w, sine), z, num_ys)
            self.terms[i] = add(turned, scaled(u, cosine))
            if j != i:
                turned = self._product(j, scaled(u, sine), z, num_ys)
                self.terms[j] = add(turned, scaled(w, cosine))

    def _projected(self, x: int, z: int, sign: float) -> Iterator[tuple[int, Amplitude]]:
        """Each slot with its amplitude of (1 + sign P) times the state, pair by pair."""
        num_ys = (x & z).bit_count()
        for i, j in self._partners(x & (len(self.terms) - 1)):
            u, w = self.terms[i], self.terms[j]
            yield i, add(u, scaled(self._product(i, w, z, num_ys), sign))
            if j != i:
                yield j, add(w, scaled(self._product(j, u, z, num_ys), sign))

    def project(self, x: int, z: int, outcome: int) -> None:
        for i, amplitude in list(self._projected(x, z, -1.0 if outcome else 1.0)):
            self.terms[i] = amplitude

    def pauli_probability(self, x: int, z: int) -> float:
        real = imag = 0.0
        for _, (re, im) in self._projected(x, z, 1.0):
            real, imag = fma(re, re, real), fma(im, im, imag)
        return real * 0.25 + imag * 0.25

    # Probabilities.

    def peek_probability(self, value: int, mask: int, limit: float) -> float:
        real = imag = 0.0
        for i, (re, im) in enumerate(self.terms):
            if (i ^ value) & mask:
                continue
            if mask:
                real, imag = fma(re, re, real), fma(im, im, imag)
            else:
                real, imag = real + re * re, imag + im * im
            if limit > 0 and real + imag >= limit:
                break
        return real + imag

    def slot_at(self, target: float) -> int:
        """The slot at which the sum of probabilities reaches `target`."""
        total = 0.0
        for i, amplitude in enumerate(self.terms):
            if not has_zero_bits(amplitude):
                total += probability(amplitude)
                if total >= target:
                    return i
        return len(self.terms) - 1

    def scale(self, factor: float) -> None:
        self.terms = [x if has_zero_bits(x) else scaled(x, factor) for x in self.terms]

    def collapse(self, mask: int, value: int) -> None:
        self.terms = [x if i & mask == value else ZERO for i, x in enumerate(self.terms)]

    def set_zero(self) -> None:
        self.all_zero = True
        self.terms = [ZERO] * len(self.terms)

    def set_random(self, generator: Generator) -> None:
        self.all_zero = False
        for i in range(len(self.terms)):
            imag = generator.plus_minus()
            self.terms[i] = generator.plus_minus(), imag

    def set_all(self, values: Sequence[Amplitude]) -> None:
        if all(map(has_zero_bits, values)):
            self.set_zero()
        else:
            self.terms, self.all_zero = list(values), False

    def normalize_by(self, total: float) -> None:
        self.scale(1.0 / math.sqrt(total))

    def biggest(self, count: int) -> tuple[list[int], list[Amplitude]]:
        """The `count` most probable terms, equal ones in slot order. Unused entries are zero."""
        ranked = [(0.0, 0, ZERO)] * count
        for i, amplitude in enumerate([] if self.all_zero else self.terms):
            p = probability(amplitude)
            if p > ranked[-1][0]:
                place = next(q for q, entry in enumerate(ranked) if entry[0] < p)
                ranked.insert(place, (p, i, amplitude))
                ranked.pop()
        return [entry[1] for entry in ranked], [entry[2] for entry in ranked]
