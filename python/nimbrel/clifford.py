"""The Clifford filter's tableau as readable strings.

The engine hands a tableau out as text: a line for each destabilizer, a line of dashes, and a
line for each generator. A line is a phase k for the factor i**k, a space, the bits of the X
part, "|" and those of the Z part. All lines, the dashes included, are equally long.
"""

from typing import Final, NamedTuple

import numpy as np
import numpy.typing as npt

from nimbrel.layout import WORD_BITS

_LETTERS: Final = np.frombuffer(b"_XZY", dtype=np.uint8)
_UNPRINTED: Final = ord("?")
_SIGNS: Final = ("+", "+i", "-", "-i")


class Tableau(NamedTuple):
    """The rows of a tableau, row i of one list being the partner of row i of the other."""

    destabilizers: list[str]
    generators: list[str]


def parse_tableau(text: str) -> Tableau:
    """Turn the engine's text into a string for each row.

    Args:
        text: What `pull_state` gives for a Clifford filter.

    Returns:
        The rows, in order: a sign and a letter for each qubit, qubit 0 first, with "?" for the
        qubits that the text leaves out.
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


def _in_qubit_order(letters: npt.NDArray[np.uint8], num_qubits: int) -> npt.NDArray[np.uint8]:
    ordered = np.full_like(letters, _UNPRINTED)
    for column, qubit in enumerate(_printed_qubits(num_qubits)):
        if qubit < num_qubits:
            ordered[:, qubit] = letters[:, column]
    return ordered


def _printed_qubits(num_qubits: int) -> list[int]:
    # The lowest word comes first and the highest bit of each word. When the last word is partly
    # used it is the first one that is printed short; the last one shows qubits that do not exist.
    shown = num_qubits % WORD_BITS or min(num_qubits, WORD_BITS)
    printed = list(reversed(range(shown)))
    for first in range(WORD_BITS, num_qubits, WORD_BITS):
        printed += reversed(range(first, first + WORD_BITS))
    return printed
