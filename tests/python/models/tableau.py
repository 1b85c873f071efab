"""A stabilizer tableau in plain Python: one integer for the X and one for the Z part of a row.

Written independently of the engine. A drawn outcome is a variable until its value is known: a sign
is a phase and a set of draws, each of which flips the sign if it gave 1. So the model follows any
number of random measurements, and `settle` inserts the draws afterwards.
"""

from __future__ import annotations

import functools
from collections.abc import Iterable, Iterator
from typing import NamedTuple


class Outcome(NamedTuple):
    """A measured bit. Each draw of the mask `draws` that gave 1 inverts it."""

    bit: int
    draws: int = 0

    def known(self, ones: int) -> int:
        """The value of the bit. `ones` is the mask of the draws that gave 1."""
        return self.bit ^ parity(self.draws & ones)


ALWAYS = Outcome(1)


def parity(mask: int) -> int:
    return mask.bit_count() & 1


class Row:
    """i to the power of `phase` times one letter for each qubit; both bits of a qubit make a Y.

    Each draw of the mask `draws` that gave 1 flips the sign.
    """

    __slots__ = ("draws", "phase", "x", "z")

    def __init__(self, x: int = 0, z: int = 0, phase: int = 0, draws: int = 0) -> None:
        self.x = x
        self.z = z
        self.phase = phase
        self.draws = draws

    def copy(self) -> Row:
        return Row(self.x, self.z, self.phase, self.draws)

    def is_identity(self) -> bool:
        return not self.x | self.z

    def multiply(self, right: Row) -> None:
        """Makes this row the product of itself, on the left, with another."""
        # Y is i X Z: a factor i for each Y of the two rows, and 1/i for each Y of the product. A Z
        # that is moved past an X flips the sign.
        letters = (self.x & self.z).bit_count() + (right.x & right.z).bit_count()
        passed = (self.z & right.x).bit_count()
        self.x ^= right.x
        self.z ^= right.z
        made = (self.x & self.z).bit_count()
        self.phase = (self.phase + right.phase + letters - made + 2 * passed) % 4
        self.draws ^= right.draws


class Tableau:
    """Generators with their partners, initially of all qubits 0. Qubits must be in range."""

    def __init__(self, num_qubits: int) -> None:
        self.num_qubits = num_qubits
        self.stabilizers = [Row(z=1 << q) for q in range(num_qubits)]
        self.destabilizers = [Row(x=1 << q) for q in range(num_qubits)]
        self.num_draws = 0

    # Conjugation.

    def _rows(self) -> Iterator[Row]:
        yield from self.stabilizers
        yield from self.destabilizers

    def px(self, q: int, when: Outcome = ALWAYS) -> None:
        """X on a qubit, only if the outcome is 1."""
        for row in self._rows():
            if row.z >> q & 1:
                row.phase ^= 2 * when.bit
                row.draws ^= when.draws

    def pz(self, q: int) -> None:
        for row in self._rows():
            if row.x >> q & 1:
                row.phase ^= 2

    def py(self, q: int) -> None:
        for row in self._rows():
            if (row.x ^ row.z) >> q & 1:
                row.phase ^= 2

    def had(self, q: int) -> None:
        bit = 1 << q
        for row in self._rows():
            if row.x & row.z & bit:
                row.phase ^= 2
            elif (row.x ^ row.z) & bit:
                row.x ^= bit
                row.z ^= bit

    def sgate(self, q: int) -> None:
        bit = 1 << q
        for row in self._rows():
            if row.x & bit:
                if row.z & bit:
                    row.phase ^= 2
                row.z ^= bit

    def s_inverse(self, q: int) -> None:
        self.pz(q)
        self.sgate(q)

    def cnot(self, control: int, target: int) -> None:
        for row in self._rows():
            x, z = row.x >> control & 1, row.z >> target & 1
            if x:
                row.x ^= 1 << target
            if z:
                row.z ^= 1 << control
            if x and z and row.x >> target & 1 == row.z >> control & 1:
                row.phase ^= 2

    def cz(self, a: int, b: int) -> None:
        """Controlled Z without its sign flip, as the engine does it."""
        for row in self._rows():
            row.z ^= (row.x >> a & 1) << b
            row.z ^= (row.x >> b & 1) << a

    # Measurement.

    def reduced_z(self, q: int) -> tuple[bool, Row]:
        """Z on a qubit, and whether a generator anticommutes with it.

        If none does, the row is multiplied by generators. Usually it is then the identity, and its
        sign is the outcome.
        """
        row = Row(z=1 << q)
        if any(generator.x >> q & 1 for generator in self.stabilizers):
            return True, row
        self._multiply_by_partners(row, q)
        return False, row

    def _multiply_by_partners(self, row: Row, q: int) -> None:
        for generator, partner in zip(self.stabilizers, self.destabilizers, strict=True):
            if partner.x >> q & 1:
                row.multiply(generator)

    def fixed_outcome(self, q: int) -> Outcome | None:
        """The outcome of measuring the qubit, or None if it is drawn."""
        random, row = self.reduced_z(q)
        if random or not row.is_identity() or row.phase % 2:
            return None
        return Outcome(row.phase // 2, row.draws)

    def measure(self, q: int) -> Outcome:
        fixed = self.fixed_outcome(q)
        if fixed is not None:
            return fixed
        _, row = self.reduced_z(q)
        row.phase, row.draws = 0, 1 << self.num_draws
        self.num_draws += 1
        self.project(row, q)
        return Outcome(0, row.draws)

    def project(self, target: Row, q: int) -> None:
        """Makes the target a generator. The target is usually Z on the qubit."""
        anticommuting = (i for i, row in enumerate(self.stabilizers) if row.x >> q & 1)
        pivot = next(anticommuting, None)
        if pivot is not None:
            self._replace(pivot, target, q)
            return
        scratch = target.copy()
        self._multiply_by_partners(scratch, q)
        # The same generators made the target, so they cancel and leave Z on the qubit.
        assert not scratch.is_identity()
        self._add_generator(scratch)

    def _replace(self, pivot: int, target: Row, q: int) -> None:
        old = self.destabilizers[pivot] = self.stabilizers[pivot]
        self.stabilizers[pivot] = target.copy()
        for i, (generator, partner) in enumerate(
            zip(self.stabilizers, self.destabilizers, strict=True)
        ):
            if i != pivot and partner.x >> q & 1:
                partner.multiply(old)
            if i != pivot and generator.x >> q & 1:
                generator.multiply(old)

    def _add_generator(self, row: Row) -> None:
        self.stabilizers.append(row.copy())
        self.destabilizers.append(Row())
        place = 0
        for column in range(self.num_qubits):
            if self._pivot(place, column, "x", "z") or self._pivot(place, column, "z", "x"):
                place += 1

    def _pivot(self, place: int, column: int, part: str, partner_part: str) -> bool:
        """Eliminates one part of a column by a row from `place` on. False if none has the bit."""
        rows = self.stabilizers
        having = [i for i, row in enumerate(rows) if getattr(row, part) >> column & 1]
        found = next((i for i in having if i >= place), None)
        if found is None:
            return False
        rows[place], rows[found] = rows[found], rows[place]
        partner = self.destabilizers[place]
        partner.x = partner.z = 0
        setattr(partner, partner_part, 1 << column)
        for i, row in enumerate(rows):
            if i != place and getattr(row, part) >> column & 1:
                row.multiply(rows[place])
        return True

    # Output.

    def all_rows(self) -> list[Row]:
        """The rows in the order in which they are printed."""
        return [*self.destabilizers, *self.stabilizers]

    def settle(self, ones: int) -> None:
        """Inserts the draws into the signs. `ones` is the mask of the draws that gave 1."""
        for row in self._rows():
            if row.draws:
                row.phase ^= 2 * parity(row.draws & ones)
                row.draws = 0
        self.num_draws = 0

    def text(self) -> str:
        dashes = "-" * (2 * self.num_qubits + 3)
        return "\n".join(
            [*self._lines(self.destabilizers), dashes, *self._lines(self.stabilizers), ""]
        )

    def _lines(self, rows: Iterable[Row]) -> Iterator[str]:
        n = self.num_qubits
        return (f"{row.phase} {bits_text(row.x, n)}|{bits_text(row.z, n)}" for row in rows)


@functools.lru_cache(maxsize=4096)  # most rows stay the same from one print to the next
def bits_text(bits: int, num_qubits: int) -> str:
    """The low word first, cut to as many bits as the last has; qubit 0 at the right of each."""
    if num_qubits == 0:
        return ""
    words = [format(bits >> start & 2**64 - 1, "064b") for start in range(0, num_qubits, 64)]
    shown = (num_qubits - 1) % 64 + 1
    return words[0][-shown:] + "".join(words[1:])


def visible_qubits(num_qubits: int) -> list[int]:
    """The qubits that the text shows. It cuts the first word to the length of the last."""
    if num_qubits <= 64 or num_qubits % 64 == 0:
        return list(range(num_qubits))
    return [*range(num_qubits % 64), *range(64, num_qubits)]
