"""Measurement outcomes of circuits, in the forms that Qiskit uses.

Outcomes are bytes, shape (shots, bytes), in little bit order: classical bit k of the circuit is bit
k % 8 of byte k // 8. Qiskit's `BitArray` has the bytes in the opposite order.
"""

from __future__ import annotations

from typing import TypeAlias

import numpy as np
import numpy.typing as npt
from qiskit import QuantumCircuit
from qiskit.circuit import Clbit

from nimbrel import sample
from nimbrel.qiskit.circuit_programs import CircuitProgram
from nimbrel.simulator import Simulator
from nimbrel.translation.back_jumps import sample_with_jumps

Bytes: TypeAlias = npt.NDArray[np.uint8]


def draw(
    circuit: CircuitProgram,
    shots: int,
    *,
    filter: str | Simulator = "auto",  # noqa: A002 - the name that nimbrel.sample has
    seed: int | None = None,
) -> Bytes:
    """Run a circuit and return the outcomes of all its classical bits.

    Args:
        circuit: The circuit as a program.
        shots: Number of shots.
        filter: As for `nimbrel.sample`.
        seed: As for `nimbrel.sample`.
    """
    if not circuit.stored_flags or not shots:
        return np.zeros((shots, num_bytes(len(circuit.flags))), dtype=np.uint8)
    if circuit.back_jumps:
        return sample_with_jumps(
            circuit.program, circuit.back_jumps, circuit.flags, shots, filter=filter, seed=seed
        ).packed
    samples = sample(
        circuit.program, shots, read_flags=circuit.stored_flags, filter=filter, seed=seed
    )
    if circuit.stored_flags == circuit.flags:
        return samples.packed
    places = [flag - circuit.flags[0] for flag in circuit.stored_flags]
    bits = np.zeros((shots, len(circuit.flags)), dtype=np.uint8)
    bits[:, places] = samples.bits()
    return np.packbits(bits, axis=1, bitorder="little")


def num_bytes(bits: int) -> int:
    """The bytes that hold a number of bits."""
    return (bits + 7) // 8


def bits_of(outcomes: Bytes, places: list[int]) -> Bytes:
    """The outcomes of some classical bits, packed for a `BitArray` of these bits.

    Args:
        outcomes: Outcomes of all classical bits, shape (shots, bytes).
        places: The classical bits; the first one is the least significant.

    Returns:
        Bytes, shape (shots, bytes), the most significant first.
    """
    first, count = (places[0], len(places)) if places else (0, 0)
    if first % 8 or places != list(range(first, first + count)):
        bits = np.unpackbits(outcomes, axis=1, bitorder="little")[:, places]
        packed = np.packbits(bits, axis=1, bitorder="little")
    else:
        packed = outcomes[:, first // 8 : first // 8 + num_bytes(count)].copy()
        if count % 8:
            packed[:, -1] &= (1 << count % 8) - 1
    return np.ascontiguousarray(packed[:, ::-1])


def register_places(circuit: QuantumCircuit) -> dict[str, list[int]]:
    """The numbers of the classical bits of each classical register, by its name."""
    numbers: dict[Clbit, int] = {bit: number for number, bit in enumerate(circuit.clbits)}
    return {register.name: [numbers[bit] for bit in register] for register in circuit.cregs}


def hexadecimal(outcomes: Bytes) -> list[str]:
    """Each outcome as a number in hexadecimal."""
    return [hex(int.from_bytes(outcome.tobytes(), "little")) for outcome in outcomes]


def hexadecimal_counts(outcomes: Bytes) -> dict[str, int]:
    """How often each outcome occurs, by its number in hexadecimal."""
    if not outcomes.shape[1]:
        return {"0x0": len(outcomes)} if len(outcomes) else {}
    values, counts = np.unique(outcomes[:, ::-1], axis=0, return_counts=True)
    return dict(zip(hexadecimal(values[:, ::-1]), counts.tolist(), strict=True))
