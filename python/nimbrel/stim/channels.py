"""The probabilities of Stim's noise instructions."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Final

import numpy as np
import numpy.typing as npt

from nimbrel.stim.noise import Channel

_LETTERS: Final = "IXYZ"
_PAIRS: Final = np.array([(k // 4, k % 4) for k in range(1, 16)], dtype=np.uint8)
"""The letters of two qubits in the order of Stim's arguments: IX, IY, IZ, XI, XX, ..."""
_SINGLE: Final = np.array([[1], [2], [3]], dtype=np.uint8)


def _channel(
    probabilities: Sequence[float],
    letters: npt.NDArray[np.uint8],
    flips: npt.NDArray[np.bool_],
    paulis: Sequence[Sequence[int]],
    readings: Sequence[Sequence[int]],
) -> Channel:
    return Channel(
        np.cumsum(np.asarray(probabilities, dtype=np.float64)),
        letters,
        flips,
        np.array(paulis, dtype=np.int64).reshape(max(len(paulis), len(readings)), -1),
        np.array(readings, dtype=np.int64).reshape(max(len(paulis), len(readings)), -1),
    )


def one_qubit_channel(name: str, arguments: Sequence[float], paulis: Sequence[int]) -> Channel:
    """The choices of X_ERROR, Y_ERROR, Z_ERROR, DEPOLARIZE1 and PAULI_CHANNEL_1.

    Args:
        name: The instruction.
        arguments: Its probabilities.
        paulis: The record of each qubit's error.
    """
    if name == "DEPOLARIZE1":
        probabilities = [arguments[0] / 3] * 3
    elif name == "PAULI_CHANNEL_1":
        probabilities = list(arguments)
    else:
        probabilities = [arguments[0] if name[0] == letter else 0.0 for letter in "XYZ"]
    none = np.zeros((3, 0), dtype=bool)
    return _channel(probabilities, _SINGLE, none, [[each] for each in paulis], [])


def two_qubit_channel(
    name: str, arguments: Sequence[float], paulis: Sequence[tuple[int, int]]
) -> Channel:
    """The choices of DEPOLARIZE2 and PAULI_CHANNEL_2."""
    probabilities = [arguments[0] / 15] * 15 if name == "DEPOLARIZE2" else list(arguments)
    return _channel(probabilities, _PAIRS, np.zeros((15, 0), dtype=bool), paulis, [])


def flip_channel(probability: float, readings: Sequence[int]) -> Channel:
    """The choice of a noisy measurement."""
    letters = np.zeros((1, 0), dtype=np.uint8)
    return _channel([probability], letters, np.ones((1, 1), dtype=bool), [],
                    [[each] for each in readings])  # fmt: skip


def heralded_channel(
    name: str, arguments: Sequence[float], paulis: Sequence[int], readings: Sequence[int]
) -> Channel:
    """The choices of HERALDED_ERASE and HERALDED_PAULI_CHANNEL_1, with the flag that tells them."""
    probabilities = [arguments[0] / 4] * 4 if name == "HERALDED_ERASE" else list(arguments)
    letters = np.array([[0], [1], [2], [3]], dtype=np.uint8)
    return _channel(probabilities, letters, np.ones((4, 1), dtype=bool),
                    [[each] for each in paulis], [[each] for each in readings])  # fmt: skip


def correlated_channel(
    chain: Sequence[tuple[float, Sequence[str], Sequence[int]]],
) -> Channel:
    """The choice of an E instruction and the ELSE_CORRELATED_ERROR instructions behind it.

    Args:
        chain: The probability of each instruction if none before has happened, its letters, and
            the records of its letters.
    """
    width = sum(len(letters) for _, letters, _ in chain)
    table = np.zeros((len(chain), width), dtype=np.uint8)
    probabilities: list[float] = []
    places: list[int] = []
    left = 1.0
    for outcome, (probability, letters, paulis) in enumerate(chain):
        probabilities.append(left * probability)
        left *= 1 - probability
        for letter, record in zip(letters, paulis, strict=True):
            table[outcome, len(places)] = _LETTERS.index(letter)
            places.append(record)
    return _channel(probabilities, table, np.zeros((len(chain), 0), dtype=bool), [places],
                    np.zeros((1, 0), dtype=np.int64).tolist())  # fmt: skip
