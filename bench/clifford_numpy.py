"""A tableau in NumPy, by which the Clifford benchmark checks the filter before it times it."""

from collections.abc import Callable, Iterable

import numpy as np
from clifford_circuits import Gate

_LETTERS = np.frombuffer(b"_XZY", dtype=np.uint8)


class TableauModel:
    """All rows, one array of bits for each qubit: the destabilizers, then the generators."""

    def __init__(self, num_qubits: int) -> None:
        """All qubits 0."""
        identity = np.eye(num_qubits, dtype=np.uint8)
        nothing = np.zeros_like(identity)
        self._x = np.hstack([identity, nothing])
        self._z = np.hstack([nothing, identity])
        self._signs = np.zeros(2 * num_qubits, dtype=np.uint8)

    def apply(self, gates: Iterable[Gate]) -> None:
        """Conjugate all rows by gates, in order."""
        rules: dict[str, Callable[..., None]] = {
            "H": self._h,
            "S": self._s,
            "S_INV": self._s_inv,
            "X": self._flip_x,
            "Y": self._flip_y,
            "Z": self._flip_z,
            "CNOT": self._cnot,
        }
        for name, qubits in gates:
            rules[name](*qubits)

    def rows(self) -> list[str]:
        """A sign and a letter for each qubit, qubit 0 first."""
        letters = _LETTERS[self._x | self._z << 1].T
        return [
            "+-"[sign] + row.tobytes().decode("ascii")
            for sign, row in zip(self._signs.tolist(), letters, strict=True)
        ]

    def _h(self, q: int) -> None:
        self._signs ^= self._x[q] & self._z[q]
        self._x[q], self._z[q] = self._z[q].copy(), self._x[q].copy()

    def _s(self, q: int) -> None:
        self._signs ^= self._x[q] & self._z[q]
        self._z[q] ^= self._x[q]

    def _s_inv(self, q: int) -> None:
        self._z[q] ^= self._x[q]
        self._signs ^= self._x[q] & self._z[q]

    def _flip_x(self, q: int) -> None:
        self._signs ^= self._z[q]

    def _flip_y(self, q: int) -> None:
        self._signs ^= self._x[q] ^ self._z[q]

    def _flip_z(self, q: int) -> None:
        self._signs ^= self._x[q]

    def _cnot(self, control: int, target: int) -> None:
        # X on the control and Z on the target give a sign with I I or with Z X beside them.
        alike = 1 ^ self._x[target] ^ self._z[control]
        self._signs ^= self._x[control] & self._z[target] & alike
        self._x[target] ^= self._x[control]
        self._z[control] ^= self._z[target]
