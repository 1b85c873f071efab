"""Tableaus and Pauli strings of Stim, and those of the engine."""

from __future__ import annotations

from collections.abc import Sequence

import stim

from nimbrel.clifford import CliffordSimulator
from nimbrel.records import Program
from nimbrel.stim.stim_program import from_circuit


def pauli_strings(simulator: CliffordSimulator) -> list[stim.PauliString]:
    """The generators of the state of a Clifford filter.

    Args:
        simulator: The filter.

    Returns:
        One Pauli string for each generator; index k of a string is qubit k.

    Raises:
        ValueError: If the engine prints only a part of the tableau, because the register has more
            than 64 qubits and no multiple of 64, or if the simulator is closed.
        RuntimeError: The engine's error, for example before the first reset.
    """
    return [_string(row) for row in simulator.generators()]


def to_tableau(simulator: CliffordSimulator) -> stim.Tableau:
    """The tableau of a Clifford filter: it takes Z of qubit k to generator k.

    The tableau takes X of qubit k to destabilizer k with the sign +, because the sign of a
    destabilizer has no meaning for the state.

    Args:
        simulator: The filter.

    Raises:
        ValueError: As `pauli_strings`.
        RuntimeError: As `pauli_strings`.
    """
    destabilizers = [_string(f"+{row.lstrip('+-i')}") for row in simulator.destabilizers()]
    return stim.Tableau.from_conjugated_generators(xs=destabilizers, zs=pauli_strings(simulator))


def _string(row: str) -> stim.PauliString:
    if "?" in row:
        raise ValueError(
            f"the engine prints only a part of a tableau of {len(row) - 1} qubits; use a register "
            "of a multiple of 64"
        )
    return stim.PauliString(row)


def from_tableau(tableau: stim.Tableau) -> Program:
    """A program that prepares the state to which a tableau takes the state of zeros.

    Args:
        tableau: The tableau of n qubits.

    Returns:
        A reset of n qubits and gates that are exact on every filter but the bit filter.
    """
    circuit = tableau.to_circuit("elimination")
    # The last qubits may have no gate, and the register has them all the same.
    program = from_circuit(circuit).program
    program["target_mask"][0] = max(len(tableau), 1)
    return program


def from_pauli_strings(
    generators: Sequence[stim.PauliString], *, allow_redundant: bool = False
) -> Program:
    """A program that prepares the state that Pauli strings stabilize.

    Args:
        generators: Commuting and independent Pauli strings, as many as qubits.
        allow_redundant: Whether dependent strings are passed over.

    Returns:
        As `from_tableau`.

    Raises:
        ValueError: If the strings do not commute, are dependent, or are too few.
    """
    tableau = stim.Tableau.from_stabilizers(generators, allow_redundant=allow_redundant)
    return from_tableau(tableau)


def qubits_of(pauli: stim.PauliString) -> tuple[list[int], list[int], int]:
    """A Pauli string as the arguments of `ppm` and `ppr`.

    Args:
        pauli: The string.

    Returns:
        The qubits with X or Y, those with Z or Y, and the sign, 1 or -1.

    Raises:
        ValueError: If the sign is imaginary.
    """
    if pauli.sign not in (1, -1):
        raise ValueError(f"the Pauli string {pauli} is not Hermitian")
    xs, zs = pauli.to_numpy()
    return xs.nonzero()[0].tolist(), zs.nonzero()[0].tolist(), int(pauli.sign.real)


def observable_of(pauli: stim.PauliString) -> dict[str, float]:
    """A Pauli string as an observable of `nimbrel.expectation`.

    Args:
        pauli: The string.

    Returns:
        The letters, those of the highest qubit first, with the sign as coefficient.

    Raises:
        ValueError: If the sign is imaginary.
    """
    sign = qubits_of(pauli)[2]
    letters = "".join("IXYZ"[letter] for letter in reversed(pauli))
    return {letters: float(sign)}
