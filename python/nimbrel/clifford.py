"""The operations that only a "StreamCliffordQPU" filter has: its tableau as strings.

The tableau is the one of Aaronson and Gottesman, https://doi.org/10.1103/PhysRevA.70.052328. The
engine returns it as text: a line for each destabilizer, a line of dashes, and a line for each
generator. A line is a digit k for the factor i**k, a space, the bits of the X part, "|" and the
bits of the Z part. All lines, the dashes included, have the same length.
"""

from typing import Final, NamedTuple

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.simulator import FilterSimulator

_LETTERS: Final = np.frombuffer(b"_XZY", dtype=np.uint8)
_UNPRINTED: Final = ord("?")
_SIGNS: Final = ("+", "+i", "-", "-i")


class Tableau(NamedTuple):
    """The rows of a tableau.

    Attributes:
        destabilizers: Row i anticommutes with generator i and commutes with all other generators.
        generators: The generators of the stabilizer group.
    """

    destabilizers: list[str]
    generators: list[str]


class CliffordSimulator(FilterSimulator, filter_type="StreamCliffordQPU"):
    """A filter that holds a stabilizer tableau."""

    def generators(self) -> list[str]:
        """The generators of the stabilizer group of the state.

        The state is the common eigenstate of all generators with eigenvalue +1.

        Returns:
            A string for each generator, in the order of the tableau: a sign, "+" or "-", and a
            letter for each qubit, qubit 0 first, with "_" for the identity. So "+XZ_Y" is X on
            qubit 0, Z on qubit 1 and Y on qubit 3. If the register has n qubits, n is above 64
            and n is no multiple of 64, the engine's text lacks the qubits n % 64 to 63, and their
            letters are "?". Use a register of a multiple of 64 qubits to see all letters.

        Raises:
            ValueError: If the simulator is closed.
            RuntimeError: The engine's error, for example before the first reset.
        """
        return parse_tableau(self._state_text()).generators

    def destabilizers(self) -> list[str]:
        """The destabilizers of the tableau.

        Returns:
            Strings of the form that `generators` returns. Destabilizer i anticommutes with
            generator i and commutes with all other generators. Its sign has no meaning for the
            state and may be "+i" or "-i".

        Raises:
            ValueError: If the simulator is closed.
            RuntimeError: The engine's error, for example before the first reset.
        """
        return parse_tableau(self._state_text()).destabilizers


def parse_tableau(text: str) -> Tableau:
    """Convert the engine's text of a tableau to a string for each row.

    Args:
        text: The text that `pull_state` returns for a Clifford filter.

    Returns:
        The rows in the order of the text: a sign and a letter for each qubit, qubit 0 first, with
        "?" for the qubits that the text lacks.
    """
    line_length = text.index("\n") + 1
    lines = np.frombuffer(text.encode("ascii"), dtype=np.uint8).reshape(-1, line_length)
    num_qubits = (line_length - len("0 |\n")) // 2
    x_bits = lines[:, 2 : 2 + num_qubits] & 1
    z_bits = lines[:, 3 + num_qubits : 3 + 2 * num_qubits] & 1
    letters = _in_qubit_order(_LETTERS[x_bits | z_bits << 1], num_qubits)
    dashes = len(lines) // 2
    rows = [
        _SIGNS[phase - ord("0")] + row.tobytes().decode("ascii")
        for number, (phase, row) in enumerate(zip(lines[:, 0].tolist(), letters, strict=True))
        if number != dashes
    ]
    return Tableau(rows[:dashes], rows[dashes:])


def generator_x_bits(text: str) -> npt.NDArray[np.uint8]:
    """The X parts of the generators in the engine's text of a tableau.

    Args:
        text: The text. If the tableau has more than 64 qubits and their number is not a multiple
            of 64, the text lacks the qubits n % 64 to 63, and their bits are 0 here.

    Returns:
        Bits, shape (n, n): row i is generator i, column k is qubit k.
    """
    line_length = text.index("\n") + 1
    lines = np.frombuffer(text.encode("ascii"), dtype=np.uint8).reshape(-1, line_length)
    num_qubits = (line_length - len("0 |\n")) // 2
    printed = lines[len(lines) // 2 + 1 :, 2 : 2 + num_qubits] & 1
    bits: npt.NDArray[np.uint8] = np.zeros(printed.shape, dtype=np.uint8)
    for column, qubit in enumerate(_printed_qubits(num_qubits)):
        if qubit < num_qubits:
            bits[:, qubit] = printed[:, column]
    return bits


def _in_qubit_order(letters: npt.NDArray[np.uint8], num_qubits: int) -> npt.NDArray[np.uint8]:
    ordered = np.full_like(letters, _UNPRINTED)
    for column, qubit in enumerate(_printed_qubits(num_qubits)):
        if qubit < num_qubits:
            ordered[:, qubit] = letters[:, column]
    return ordered


def _printed_qubits(num_qubits: int) -> list[int]:
    # The text has the lowest word first and the highest bit of each word first. If the register
    # does not fill its last word, the text shortens the first word instead of the last one, and
    # the last word shows qubits that do not exist.
    shown = num_qubits % WORD_BITS or min(num_qubits, WORD_BITS)
    printed = list(reversed(range(shown)))
    for first in range(WORD_BITS, num_qubits, WORD_BITS):
        printed += reversed(range(first, first + WORD_BITS))
    return printed
