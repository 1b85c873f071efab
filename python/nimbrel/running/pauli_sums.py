"""Observables: sums of Pauli products with coefficients."""

from collections.abc import Iterable, Mapping
from typing import Any, NamedTuple, Protocol, TypeAlias

__all__ = ["Observable", "PauliProduct", "PauliSum", "pauli_sums"]


class HasList(Protocol):
    """A sum of Pauli products with labels, such as Qiskit's SparsePauliOp."""

    def to_list(self) -> Iterable[Any]:
        """Labels and coefficients."""
        ...


Terms: TypeAlias = Mapping[str, complex] | Iterable[tuple[str, complex]] | HasList
"""One observable: the coefficient of each label. The leftmost letter is the highest qubit."""

Observable: TypeAlias = Terms | list[Any]
"""One observable, or a list of them."""


class PauliProduct(NamedTuple):
    """A product of Pauli letters.

    Attributes:
        x_mask: Bit k tells that qubit k has an X, or a Y if the bit of `z_mask` is set too.
        z_mask: Bit k tells that qubit k has a Z, or a Y.
    """

    x_mask: int
    z_mask: int


PauliSum: TypeAlias = dict[PauliProduct, complex]
"""The coefficient of each product."""

_X_DIGITS = str.maketrans("IXYZ", "0110")
_Z_DIGITS = str.maketrans("IXYZ", "0011")


def pauli_sums(observable: Any, num_qubits: int) -> tuple[list[PauliSum], bool]:
    """Read one observable, or a list of them.

    Args:
        observable: As for `expectation`.
        num_qubits: The qubits of the register.

    Returns:
        The sums, and whether a list of observables was given.

    Raises:
        TypeError: If a label is no string or a coefficient no number.
        ValueError: If a label has another letter than I, X, Y and Z, or names a qubit outside the
            register.
    """
    if isinstance(observable, list) and not any(_is_term(entry) for entry in observable):
        return [_pauli_sum(entry, num_qubits) for entry in observable], True
    return [_pauli_sum(observable, num_qubits)], False


def _is_term(entry: object) -> bool:
    return isinstance(entry, tuple) and len(entry) == 2 and isinstance(entry[0], str)


def _pauli_sum(terms: Any, num_qubits: int) -> PauliSum:
    items: Iterable[Any]
    if isinstance(terms, Mapping):
        items = terms.items()
    else:
        to_list = getattr(terms, "to_list", None)
        items = terms if to_list is None else to_list()
    total: PauliSum = {}
    for label, coefficient in items:
        product = _product(label, num_qubits)
        total[product] = total.get(product, 0.0) + _number(coefficient)
    return total


def _number(coefficient: Any) -> complex:
    number = complex(coefficient)
    return number if number.imag else number.real


def _product(label: str, num_qubits: int) -> PauliProduct:
    if not isinstance(label, str):
        raise TypeError(f"a Pauli label is a string, not {label!r}")
    if not label or set(label) - set("IXYZ"):
        raise ValueError(f"a Pauli label has the letters I, X, Y and Z, not {label!r}")
    product = PauliProduct(int(label.translate(_X_DIGITS), 2), int(label.translate(_Z_DIGITS), 2))
    highest = (product.x_mask | product.z_mask).bit_length() - 1
    if highest >= num_qubits:
        raise ValueError(
            f"{label!r} has a letter on qubit {highest}, outside the register of {num_qubits} "
            "qubits"
        )
    return product
