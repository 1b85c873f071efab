"""Expectation values of Pauli products in the state of a filter, which stays as it is.

Dense filter, qubits below 32: the engine's `pps`, one pass over the state for each product.

Clifford filter, and dense filter with higher qubits: gates gather the product on one qubit, a peek
tells its probability, and the inverse gates restore the state. That is one gate for each letter,
there and back, and on a tableau it is exact.

Sparse filter: NumPy on one copy of the terms. Each X mask needs a search for the partners of all
terms, each product one pass over them.

Bit filter: the signs of the bits. A product with an X or Y has the value 0.
"""

from collections.abc import Collection
from typing import Final

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import call
from nimbrel.bit import BitSimulator
from nimbrel.dense import MASK_QUBITS, DenseSimulator
from nimbrel.gates import h, s, s_inv, swap, x
from nimbrel.records import program
from nimbrel.running.pauli_sums import PauliProduct
from nimbrel.simulator import Simulator
from nimbrel.sparse import SparseSimulator

__all__ = ["product_values"]

_IDENTITY: Final = PauliProduct(0, 0)


def product_values(
    simulator: Simulator, products: Collection[PauliProduct]
) -> dict[PauliProduct, float]:
    """The expectation value of each product.

    Args:
        simulator: The filter with the state, which must have norm 1.
        products: The products; their qubits are inside the register.

    Returns:
        The values, from -1 to 1.
    """
    lettered = [product for product in products if product != _IDENTITY]
    values = {_IDENTITY: 1.0}
    if isinstance(simulator, SparseSimulator):
        return values | _from_terms(*simulator.terms(), lettered)
    if isinstance(simulator, BitSimulator):
        text = simulator.bits()
        if any((product.x_mask | product.z_mask) >> len(text) for product in lettered):
            raise ValueError(
                f"a label has a letter outside the last register of {len(text)} qubits"
            )
        bits = int(text[::-1] or "0", 2)
        return values | {product: _bit_value(bits, product) for product in lettered}
    for product in lettered:
        in_masks = (product.x_mask | product.z_mask) < 1 << MASK_QUBITS
        if in_masks and isinstance(simulator, DenseSimulator):
            values[product] = _dense_value(simulator, product)
        else:
            values[product] = _folded_value(simulator, product)
    return values


def _dense_value(simulator: DenseSimulator, product: PauliProduct) -> float:
    handle = simulator._require_open()
    return 2.0 * call(_lib_nb_sim.pps, handle, product.x_mask, product.z_mask) - 1.0


def _bit_value(bits: int, product: PauliProduct) -> float:
    if product.x_mask:
        return 0.0
    return -1.0 if (bits & product.z_mask).bit_count() & 1 else 1.0


def _folded_value(simulator: Simulator, product: PauliProduct) -> float:
    """Gather the product on one qubit, look at this qubit, and undo the gates."""
    letters = _qubits(product.x_mask | product.z_mask)
    pivot = letters[0]
    ys = _qubits(product.x_mask & product.z_mask)
    xs = _qubits(product.x_mask)
    others = letters[1:]
    parity = x.each([pivot] * len(others), controls=others)
    # A peek names qubits below 32, so a higher pivot changes places with qubit 0.
    moved = swap(pivot, 0) if pivot >= MASK_QUBITS else program()
    seen = 1 << (0 if pivot >= MASK_QUBITS else pivot)
    simulator.run(s_inv.each(ys), h.each(xs), parity, moved)
    one = simulator.peek_probability(seen, seen)
    simulator.run(moved, parity[::-1], h.each(xs), s.each(ys))
    return 1.0 - 2.0 * one


def _from_terms(
    indices: npt.NDArray[np.uint64],
    amplitudes: npt.NDArray[np.complex128],
    products: Collection[PauliProduct],
) -> dict[PauliProduct, float]:
    values: dict[PauliProduct, float] = {}
    for x_mask in {product.x_mask for product in products}:
        partners = indices ^ np.uint64(x_mask)
        places = np.minimum(np.searchsorted(indices, partners), len(indices) - 1)
        found = indices[places] == partners
        overlaps = np.where(found, amplitudes.conj() * amplitudes[places], 0.0)
        for product in products:
            if product.x_mask == x_mask:
                # (P a)[j] = (-i)**k (-1)**parity(j & z) a[j ^ x], with k letters Y.
                signs = 1.0 - 2.0 * _parity(indices & np.uint64(product.z_mask))
                factor = (-1j) ** (x_mask & product.z_mask).bit_count()
                values[product] = float((factor * (signs @ overlaps)).real)
    return values


def _parity(words: npt.NDArray[np.uint64]) -> npt.NDArray[np.float64]:
    for shift in (32, 16, 8, 4, 2, 1):
        words = words ^ (words >> np.uint64(shift))
    parities: npt.NDArray[np.float64] = (words & np.uint64(1)).astype(np.float64)
    return parities


def _qubits(mask: int) -> list[int]:
    return [qubit for qubit in range(mask.bit_length()) if mask >> qubit & 1]
