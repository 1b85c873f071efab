"""Draws outcomes of a measurement from the state of a filter, which stays as it is.

The draws of a dense and a sparse state are those of `sampling`. The outcomes of a stabilizer state
are uniform on an affine space over GF(2): one outcome plus the span of the X parts of the
generators (J. Dehaene and B. De Moor, https://doi.org/10.1103/PhysRevA.68.042318).
"""

from collections.abc import Sequence
from typing import Final

import numpy as np
import numpy.typing as npt

from nimbrel.classical import read
from nimbrel.clifford import generator_x_bits
from nimbrel.dense import DenseSimulator
from nimbrel.running.flag_columns import pack_bits, pack_indices
from nimbrel.running.stored_flags import QubitBit, Source
from nimbrel.sampling import draw_terms
from nimbrel.simulator import Simulator
from nimbrel.sparse import SparseSimulator

__all__ = ["draw_outcomes"]

_FIRST_FLAG: Final = 2
_PRODUCT_BYTES: Final = 1 << 24
"""Memory of one product of bit matrices."""


def draw_outcomes(
    simulator: Simulator, sources: Sequence[Source], shots: int, rng: np.random.Generator
) -> npt.NDArray[np.uint8]:
    """Draw the read flags of many runs from a state.

    Args:
        simulator: The filter with the state; a Clifford filter's is measured.
        sources: The source of each column.
        shots: Number of draws.
        rng: The generator.

    Returns:
        Packed rows, shape (shots, ceil(columns / 8)).
    """
    qubits = sorted({source.qubit for source in sources if isinstance(source, QubitBit)})
    if not qubits or not shots:
        return pack_indices(sources, np.zeros(shots, dtype=np.int64))
    if isinstance(simulator, DenseSimulator):
        return pack_indices(sources, draw_terms(simulator.state(), shots, rng))
    if isinstance(simulator, SparseSimulator):
        indices, amplitudes = simulator.terms()
        drawn = indices[draw_terms(amplitudes, shots, rng)]
        return pack_indices(sources, drawn.view(np.int64))
    rows = _independent_rows(generator_x_bits(simulator._state_text())[:, qubits])
    first = _measured(simulator, qubits)
    for row in rows:
        if first[np.argmax(row)]:
            first ^= row  # now the same outcome for every run
    return pack_bits(sources, qubits, _uniform(first, rows, shots, rng))


def _independent_rows(rows: npt.NDArray[np.uint8]) -> npt.NDArray[np.uint8]:
    """The reduced row echelon form over GF(2)."""
    columns = rows.shape[1]
    packed = np.packbits(rows, axis=1)
    numbers = [int.from_bytes(row.tobytes(), "big") for row in packed[packed.any(axis=1)]]
    basis: dict[int, int] = {}
    for number in numbers:
        rest = number
        while rest and (lead := rest.bit_length()) in basis:
            rest ^= basis[lead]
        if rest:
            basis[rest.bit_length()] = rest
    leads = sorted(basis)
    for place, lead in enumerate(leads):
        for other in leads[place + 1 :]:
            if basis[other] >> (lead - 1) & 1:
                basis[other] ^= basis[lead]
    width = packed.shape[1]
    joined = b"".join(basis[lead].to_bytes(width, "big") for lead in reversed(leads))
    matrix = np.frombuffer(joined, dtype=np.uint8).reshape(len(leads), width)
    return np.unpackbits(matrix, axis=1, count=columns)


def _measured(simulator: Simulator, qubits: Sequence[int]) -> npt.NDArray[np.uint8]:
    simulator.run(read(qubits, _FIRST_FLAG))
    value = simulator.flags(_FIRST_FLAG, len(qubits))
    packed = np.frombuffer(value.to_bytes(len(qubits) // 8 + 1, "little"), dtype=np.uint8)
    return np.unpackbits(packed, count=len(qubits), bitorder="little")


def _uniform(
    first: npt.NDArray[np.uint8],
    rows: npt.NDArray[np.uint8],
    shots: int,
    rng: np.random.Generator,
) -> npt.NDArray[np.uint8]:
    """Draw from `first` plus the span of `rows`."""
    outcomes = np.empty((shots, len(first)), dtype=np.uint8)
    # Sums of up to 2**24 ones are exact in single precision, and only floats multiply fast.
    basis = rows.astype(np.float32)
    step = max(1, _PRODUCT_BYTES // (4 * max(len(first), len(rows), 1)))
    for start in range(0, shots, step):
        part = outcomes[start : start + step]
        choices = rng.integers(0, 2, (len(part), len(rows)), dtype=np.uint8)
        part[:] = ((choices.astype(np.float32) @ basis).astype(np.uint32) & 1) ^ first
    return outcomes
