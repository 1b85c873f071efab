"""Noise as random choices, and the records that a choice changes.

A noisy program has a record that does nothing wherever a Pauli error may strike. A trajectory turns
some of them into X, Y or Z, and inverts the flags of some measurements.
"""

from __future__ import annotations

from collections.abc import Sequence
from typing import Final, NamedTuple

import numpy as np
import numpy.typing as npt

from nimbrel.opcodes import Opcode

Letters = npt.NDArray[np.uint8]
Positions = npt.NDArray[np.int64]

OPCODES: Final = np.array([Opcode.Z_NOP, Opcode.X, Opcode.Y, Opcode.Z], dtype=np.uint64)
"""The opcode of each letter I, X, Y and Z."""


class Channel(NamedTuple):
    """Independent random choices with the same probabilities, at many places of a program.

    Attributes:
        cumulative: The summed probabilities of the outcomes 1, 2, ..., shape (outcomes,). Outcome 0
            has the rest.
        letters: The Pauli letter that each outcome puts on each qubit, shape (outcomes, qubits).
        flips: Whether each outcome inverts each measurement, shape (outcomes, measurements).
        paulis: The records of the letters, shape (places, qubits).
        readings: The records of the measurements, shape (places, measurements).
    """

    cumulative: npt.NDArray[np.float64]
    letters: Letters
    flips: npt.NDArray[np.bool_]
    paulis: Positions
    readings: Positions

    def moved(self, starts: Positions) -> Channel:
        """The same choices in several copies of the records.

        Args:
            starts: The index of the first record of each copy.
        """
        return self._replace(
            paulis=_copies(self.paulis, starts), readings=_copies(self.readings, starts)
        )


def _copies(places: Positions, starts: Positions) -> Positions:
    moved = places[None, :, :] + starts[:, None, None]
    return moved.reshape(len(starts) * len(places), places.shape[1])


def joined(channels: Sequence[Channel]) -> list[Channel]:
    """The channels with those of equal choices made one."""
    groups: dict[tuple[bytes, ...], list[Channel]] = {}
    for channel in channels:
        key = (channel.cumulative.tobytes(), channel.letters.tobytes(), channel.flips.tobytes(),
               bytes(channel.letters.shape), bytes(channel.flips.shape))  # fmt: skip
        groups.setdefault(key, []).append(channel)
    return [
        group[0]._replace(
            paulis=np.concatenate([each.paulis for each in group]),
            readings=np.concatenate([each.readings for each in group]),
        )
        for group in groups.values()
    ]


class Trajectories(NamedTuple):
    """What differs from the noiseless program, for several runs of it.

    Attributes:
        paulis: The records that become Pauli matrices, ordered by run.
        opcodes: Their opcodes.
        pauli_ends: Where the records of each run end, shape (runs,).
        readings: The records whose flags are inverted, ordered by run.
        reading_ends: Where those of each run end, shape (runs,).
    """

    paulis: Positions
    opcodes: npt.NDArray[np.uint64]
    pauli_ends: Positions
    readings: Positions
    reading_ends: Positions


def draw(channels: Sequence[Channel], runs: int, rng: np.random.Generator) -> Trajectories:
    """Draw the choices of several runs."""
    pauli_parts = [(np.zeros(0, np.int64), np.zeros(0, np.int64), np.zeros(0, np.uint64))]
    flip_parts = [(np.zeros(0, np.int64), np.zeros(0, np.int64))]
    for channel in channels:
        uniform = rng.random((runs, len(channel.paulis)))
        run, place = np.nonzero(uniform < channel.cumulative[-1])
        outcome = np.searchsorted(channel.cumulative, uniform[run, place], side="right")
        letters = channel.letters[outcome]
        hit, qubit = np.nonzero(letters)
        pauli_parts.append(
            (run[hit], channel.paulis[place[hit], qubit], OPCODES[letters[hit, qubit]])
        )
        hit, reading = np.nonzero(channel.flips[outcome])
        flip_parts.append((run[hit], channel.readings[place[hit], reading]))
    pauli_runs, paulis, opcodes = (np.concatenate(part) for part in zip(*pauli_parts, strict=True))
    flip_runs, readings = (np.concatenate(part) for part in zip(*flip_parts, strict=True))
    order, flip_order = np.argsort(pauli_runs), np.argsort(flip_runs)
    return Trajectories(
        paulis[order],
        opcodes[order],
        np.searchsorted(pauli_runs[order], np.arange(runs), side="right"),
        readings[flip_order],
        np.searchsorted(flip_runs[flip_order], np.arange(runs), side="right"),
    )
