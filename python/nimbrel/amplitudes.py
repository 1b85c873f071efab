"""Arrays of amplitudes as the engine takes them."""

from typing import Final, TypeAlias

import numpy as np
import numpy.typing as npt

Amplitudes: TypeAlias = npt.NDArray[np.complex128]
"""Amplitudes in order of their term index, shape (2**n,)."""

Indices: TypeAlias = npt.NDArray[np.uint64]
"""Term indices, shape (m,)."""

FAST_ALIGNMENT: Final = 32
"""Bytes; the engine loads two amplitudes at a time, and such a pair then lies in one cache line."""


def aligned_buffer(num_qubits: int) -> Amplitudes:
    """Memory on which `Simulator.override_state_buffer` gives the fastest register.

    An array of NumPy's own making is as good but for speed: gates on it can take 1.5 times as
    long.

    Args:
        num_qubits: Qubits of the register, 1 or more.

    Returns:
        Zeros, shape (2**num_qubits,), beginning at a multiple of 32 bytes.

    Raises:
        ValueError: If `num_qubits` is below 1.
        MemoryError: If there is not that much memory.
    """
    if num_qubits < 1:
        raise ValueError(f"a state buffer holds at least 1 qubit, not {num_qubits}")
    amplitude_bytes = np.dtype(np.complex128).itemsize
    size = amplitude_bytes << num_qubits
    memory = np.zeros(size + FAST_ALIGNMENT, dtype=np.uint8)
    start = -memory.ctypes.data % FAST_ALIGNMENT
    return memory[start : start + size].view(np.complex128)


def as_amplitudes(values: npt.ArrayLike, terms: int | None = None) -> Amplitudes:
    """Amplitudes as an array that the engine may read; copied only when they are not yet one.

    Args:
        values: Numbers, shape (terms,).
        terms: How many there must be; None takes any number from 1.

    Raises:
        ValueError: If the shape is another one.
    """
    array = np.ascontiguousarray(values, dtype=np.complex128)
    if terms is None and (array.ndim != 1 or not len(array)):
        raise ValueError(f"the state must have shape (m,) with m from 1, not {array.shape}")
    if terms is not None and array.shape != (terms,):
        raise ValueError(f"the state must have shape ({terms},), not {array.shape}")
    return array


def check_buffer(buffer: Amplitudes) -> None:
    """Check that the engine can keep a register in an array.

    Raises:
        ValueError: If it is no contiguous, writable and aligned array of 2**n amplitudes, n
            from 1.
    """
    if buffer.dtype != np.complex128 or buffer.ndim != 1:
        raise ValueError("a state buffer is a one-dimensional array of dtype complex128")
    if len(buffer) < 2 or len(buffer) & (len(buffer) - 1):
        raise ValueError(f"a state buffer has 2, 4, 8, ... amplitudes, not {len(buffer)}")
    if not (buffer.flags.c_contiguous and buffer.flags.writeable):
        raise ValueError("a state buffer is contiguous and writable")
    if not buffer.flags.aligned:
        raise ValueError("a state buffer begins at a multiple of 8 bytes")
