"""Arrays of amplitudes in the form that the engine takes."""

from typing import Final, TypeAlias

import numpy as np
import numpy.typing as npt

Amplitudes: TypeAlias = npt.NDArray[np.complex128]
"""Amplitudes in ascending order of the term index, shape (2**n,)."""

Indices: TypeAlias = npt.NDArray[np.uint64]
"""Term indices, shape (m,)."""

FAST_ALIGNMENT: Final = 64
"""Bytes. The engine loads up to four amplitudes at a time; with this alignment they never cross a
cache line."""


def aligned_buffer(num_qubits: int) -> Amplitudes:
    """Memory for `DenseSimulator.override_state_buffer` on which gates are fastest.

    An array that NumPy allocates works too, but gates on it can take 1.5 times as long.

    Args:
        num_qubits: Qubits of the register, 1 or more.

    Returns:
        Zeros, shape (2**num_qubits,), at an address that is a multiple of 64 bytes.

    Raises:
        ValueError: If `num_qubits` is below 1.
        MemoryError: If there is not enough memory.
    """
    if num_qubits < 1:
        raise ValueError(f"a state buffer holds at least 1 qubit, not {num_qubits}")
    amplitude_bytes = np.dtype(np.complex128).itemsize
    size = amplitude_bytes << num_qubits
    memory = np.zeros(size + FAST_ALIGNMENT, dtype=np.uint8)
    start = -memory.ctypes.data % FAST_ALIGNMENT
    return memory[start : start + size].view(np.complex128)


def as_amplitudes(values: npt.ArrayLike, terms: int | None = None) -> Amplitudes:
    """Convert values to an array that the engine can read. Copies only if it must convert.

    Args:
        values: Numbers, shape (terms,).
        terms: The required length; None accepts any length from 1.

    Raises:
        ValueError: If the shape is wrong.
    """
    array = np.ascontiguousarray(values, dtype=np.complex128)
    if terms is None and (array.ndim != 1 or not len(array)):
        raise ValueError(f"the state must have shape (m,) with m from 1, not {array.shape}")
    if terms is not None and array.shape != (terms,):
        raise ValueError(f"the state must have shape ({terms},), not {array.shape}")
    return array


def empty_terms(count: int) -> tuple[Indices, Amplitudes]:
    """Arrays for `count` terms, all zero: indices and amplitudes, both of shape (count,)."""
    return np.zeros(count, dtype=np.uint64), np.zeros(count, dtype=np.complex128)


def check_buffer(buffer: Amplitudes) -> None:
    """Check that the engine can keep a register in an array.

    Args:
        buffer: The array.

    Raises:
        ValueError: If it is not a contiguous, writable and aligned array of 2**n amplitudes with
            n from 1.
    """
    if buffer.dtype != np.complex128 or buffer.ndim != 1:
        raise ValueError("a state buffer is a one-dimensional array of dtype complex128")
    if len(buffer) < 2 or len(buffer) & (len(buffer) - 1):
        raise ValueError(f"a state buffer has 2, 4, 8, ... amplitudes, not {len(buffer)}")
    if not (buffer.flags.c_contiguous and buffer.flags.writeable):
        raise ValueError("a state buffer is contiguous and writable")
    if not buffer.flags.aligned:
        raise ValueError("a state buffer begins at a multiple of 8 bytes")
