"""The sparse simulator's list of terms and the walks over it, in plain Python.

A key is a term's index shifted left by one; bit 0 marks the upper term of a pair while a walk is at
work. Masks are doubled like keys. Every product and sum is rounded by itself, but for the one fused
step of the real pair formula.
"""

from __future__ import annotations

import math
from collections.abc import Callable
from typing import NamedTuple

from models.arithmetic import (
    ROOT_HALF,
    ZERO,
    Amplitude,
    add,
    flipped,
    fma,
    probability,
    scaled,
    subtract,
    times,
)
from models.dense_block import Matrix
from models.wire import set_bits


class Term:
    """One stored term."""

    __slots__ = ("amplitude", "key")

    def __init__(self, key: int, amplitude: Amplitude) -> None:
        self.key = key
        self.amplitude = amplitude


class Condition(NamedTuple):
    """The mask of controls, and negations. Negations outside the mask have no effect."""

    mask: int
    negs: int

    def met_by(self, key: int) -> bool:
        return ~(key ^ self.negs) & self.mask == 0

    def joined_by(self, bits: int) -> Condition:
        return Condition(self.mask | bits, self.negs)


ALWAYS = Condition(0, 0)


class PairFormula(NamedTuple):
    """A gate on the two terms of a pair, or on one of them if its partner is missing.

    Each function returns the amplitudes of the lower and of the upper term.
    """

    pair: Callable[[Amplitude, Amplitude], tuple[Amplitude, Amplitude]]
    lower: Callable[[Amplitude], tuple[Amplitude, Amplitude]]
    upper: Callable[[Amplitude], tuple[Amplitude, Amplitude]]


HADAMARD_FORMULA = PairFormula(
    lambda a, b: (scaled(add(b, a), ROOT_HALF), scaled(subtract(a, b), ROOT_HALF)),
    lambda a: (scaled(a, ROOT_HALF), scaled(a, ROOT_HALF)),
    lambda a: (scaled(a, ROOT_HALF), flipped(scaled(a, ROOT_HALF))),
)


def complex_formula(m: Matrix) -> PairFormula:
    return PairFormula(
        lambda a, b: (add(times(m[0], a), times(m[1], b)), add(times(m[2], a), times(m[3], b))),
        lambda a: (times(m[0], a), times(m[2], a)),
        lambda a: (times(m[1], a), times(m[3], a)),
    )


def real_formula(cosine: float, sine: float) -> PairFormula:
    def pair(a: Amplitude, b: Amplitude) -> tuple[Amplitude, Amplitude]:
        lower = fma(-sine, b[0], cosine * a[0]), fma(-sine, b[1], cosine * a[1])
        upper = fma(cosine, b[0], sine * a[0]), fma(cosine, b[1], sine * a[1])
        return lower, upper

    return PairFormula(
        pair,
        lambda a: (scaled(a, cosine), scaled(a, sine)),
        lambda a: (scaled(a, -sine), scaled(a, cosine)),
    )


class TermList:
    """The terms in their exact order."""

    def __init__(self) -> None:
        self.terms: list[Term] = []

    def replace(self, key: int) -> None:
        """Replaces all terms by one of amplitude 1."""
        self.terms = [Term(key, (1.0, 0.0))]

    # Walks that keep the order and the number of terms.

    def flip(self, bits: int, condition: Condition) -> None:
        for term in self.terms:
            if condition.met_by(term.key):
                term.key ^= bits

    def change(self, condition: Condition, formula: Callable[[Amplitude], Amplitude]) -> None:
        for term in self.terms:
            if condition.met_by(term.key):
                term.amplitude = formula(term.amplitude)

    # The walk that brings the two terms of each pair together.

    def mix(self, targets: int, condition: Condition, formula: PairFormula) -> None:
        for target in set_bits(targets):
            self._mark(target)
            self.terms.sort(key=lambda term: term.key)
            self._walk_pairs(target, condition, formula)

    def _mark(self, target: int) -> None:
        for term in self.terms:
            if term.key & target:
                term.key ^= target | 1

    def _walk_pairs(self, target: int, condition: Condition, formula: PairFormula) -> None:
        added: list[Term] = []
        i = 0
        while i < len(self.terms):
            term = self.terms[i]
            following = self.terms[i + 1] if i + 1 < len(self.terms) else None
            i += 1
            if condition.mask and not condition.met_by(term.key):
                if term.key & 1:
                    term.key ^= target | 1
            elif term.key & 1:
                lower, term.amplitude = formula.upper(term.amplitude)
                added.append(Term(term.key ^ 1, lower))
                term.key ^= target | 1
            elif following is not None and following.key == term.key | 1:
                both = formula.pair(term.amplitude, following.amplitude)
                term.amplitude, following.amplitude = both
                following.key ^= target | 1
                i += 1
            else:
                term.amplitude, upper = formula.lower(term.amplitude)
                added.append(Term(term.key ^ target, upper))
        self.terms += added

    # Sums, in list order.

    def sample(self, draw: float) -> int:
        """The key at which the sum of probabilities reaches the draw."""
        total = 0.0
        for term in self.terms:
            total += probability(term.amplitude)
            if total >= draw:
                return term.key
        return (len(self.terms) - 1) % (1 << 64)  # the engine uses the count as a key

    def probability_of(self, wanted: int, mask: int, limit: float) -> float:
        total = 0.0
        for term in self.terms:
            if term.key & mask == wanted:
                total += probability(term.amplitude)
                if limit != 0.0 and total >= limit:
                    break
        return total

    def project(self, wanted: int, mask: int) -> float:
        """Sets all other terms to 0 and returns the probability of the matching ones."""
        total = 0.0
        for term in self.terms:
            if term.key & mask == wanted:
                total += probability(term.amplitude)
            else:
                term.amplitude = ZERO
        return total

    def shrink_by(self, total: float) -> None:
        """Divides the amplitudes by the root of the total probability."""
        factor = 1.0 / math.sqrt(total)
        for term in self.terms:
            term.amplitude = scaled(term.amplitude, factor)

    # Read-outs.

    def key_of_largest(self) -> int:
        best, largest = 0, 0.0
        for term in self.terms:
            p = probability(term.amplitude)
            if p > largest:
                best, largest = term.key, p
        return best

    def ranked(self) -> list[Term]:
        """The terms of a probability above 0, the most probable first, equal ones in list order."""
        likely = [term for term in self.terms if probability(term.amplitude) > 0.0]
        return sorted(likely, key=lambda term: -probability(term.amplitude))
