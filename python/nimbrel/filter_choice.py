"""`choose_filter`: the filter that `filter="auto"` runs a program on."""

from typing import Final, NamedTuple

import numpy as np
import numpy.typing as npt

from nimbrel.available_memory import available_memory
from nimbrel.exact_records import CLASSICAL, CLIFFORD, SPARSE, Objection, first_objection
from nimbrel.opcodes import Opcode
from nimbrel.record_names import record_name
from nimbrel.records import Program, RecordArray
from nimbrel.records import program as joined_program
from nimbrel.register_trace import Words
from nimbrel.suspect_search import as_words
from nimbrel.term_bound import log2_terms

__all__ = ["FilterChoice", "check_local", "choose_filter", "with_reset"]

_AMPLITUDE_BYTES: Final = 16
_STATES: Final = 2
"""A state and the copy from which outcomes are drawn."""
_TERM_BYTES: Final = 48
_DENSE_QUBITS: Final = 12
"""Up to here a gate on all amplitudes takes no longer than one on a few terms."""
_SPARSER: Final = 8
"""A gate on a term takes longer than one on an amplitude, by less than 2**8."""
_MOST_SPARSE_QUBITS: Final = 63
_SMALL_QUBITS: Final = 20
_SMALL: Final = _STATES * _AMPLITUDE_BYTES << _SMALL_QUBITS
"""Bytes that every machine has, so that the system need not be asked."""
_REMOTE: Final = "StreamConnect"
_GIBIBYTE: Final = 2**30


def check_local(filter_type: str) -> None:
    """Check that a filter simulates programs itself.

    Raises:
        ValueError: If it sends them to a service.
    """
    if filter_type == _REMOTE:
        raise ValueError(
            f'a "{_REMOTE}" filter sends its programs to a service; run them by its own methods'
        )


class FilterChoice(NamedTuple):
    """The filter for a program.

    Attributes:
        name: The engine's name of the filter type, such as "StreamQPU".
        reason: Why, in one sentence.
    """

    name: str
    reason: str


def with_reset(records: RecordArray) -> Program:
    """Return the program as one contiguous array, if its first record is a reset.

    Raises:
        ValueError: If it is not.
    """
    joined = joined_program(records)
    if not len(joined) or joined["opcode"][0] != Opcode.RESET:
        raise ValueError("the first record of the program must be its reset")
    return joined


def choose_filter(program: RecordArray, *, seedable: bool = False) -> FilterChoice:
    """Choose the fastest filter on which every record has its meaning.

    - The bit filter runs programs of X, swaps, elbows, writes and measurements.
    - The Clifford filter runs those of Clifford gates, except those that it does not carry out
      exactly: controlled Z, negated controls, and those that it refuses.
    - The sparse filter runs those of few terms, by a bound that can be told from the gates, on up
      to 63 qubits. Programs with `pcp`, with flags of a write or with the condition of a free have
      another meaning there.
    - The dense filter runs all others that fit into memory.

    Args:
        program: The records; the first is the reset.
        seedable: Whether a Clifford filter is left out, whose draws cannot be seeded.

    Returns:
        The engine's name of the filter type, and the reason.

    Raises:
        ValueError: If the program does not begin with a reset, or no filter fits.
    """
    words = as_words(with_reset(program))
    opcodes = words[:, 0]
    positions = {int(opcode): np.flatnonzero(opcodes == opcode) for opcode in np.unique(opcodes)}
    not_classical = first_objection(words, positions, CLASSICAL)
    if not_classical is None:
        return FilterChoice("StreamBitQPU", "every record is classical")
    not_clifford = first_objection(words, positions, CLIFFORD)
    if not_clifford is None and not seedable:
        return FilterChoice(
            "StreamCliffordQPU",
            f"{_named(not_classical)} is not classical, and every record is Clifford",
        )
    return _amplitudes(words, positions, not_clifford)


def _amplitudes(
    words: Words, positions: dict[int, npt.NDArray[np.intp]], not_clifford: Objection | None
) -> FilterChoice:
    qubits = int(words[positions[int(Opcode.RESET)], 1].max())
    memory = _SMALL if qubits <= _SMALL_QUBITS else available_memory()
    dense_fits = Opcode.EXTEND not in positions and (
        qubits < _MOST_SPARSE_QUBITS and _STATES * _AMPLITUDE_BYTES << qubits <= memory
    )
    why = "a seed is wanted" if not_clifford is None else f"{_named(not_clifford)} is not Clifford"
    not_sparse = first_objection(words, positions, SPARSE)
    if not_sparse is None and (qubits > _DENSE_QUBITS or not dense_fits):
        most = (memory // _TERM_BYTES).bit_length() - 1
        limit = min(most, qubits - _SPARSER) if dense_fits else most
        bound = log2_terms(words, limit)
        if bound <= limit:
            terms = f"at most {2**bound} of 2**{qubits} terms"
            return FilterChoice("StreamSparseQPU", f"{why}, and the state has {terms}")
    if dense_fits:
        few = "" if not_sparse is not None or qubits <= _DENSE_QUBITS else " with many terms"
        return FilterChoice("StreamQPU", f"{why}, and {qubits} qubits{few} fit the dense register")
    raise ValueError(_no_filter(qubits, memory, why, not_sparse))


def _no_filter(qubits: int, memory: int, why: str, not_sparse: Objection | None) -> str:
    if not_sparse is not None:
        sparse = f"{_named(not_sparse)} has no such meaning on a sparse filter"
    else:
        sparse = "its terms may be too many for a sparse filter"
    needed = f"{_STATES} * 2**{qubits + 4 - 30} GiB" if qubits >= 26 else "extension records"
    return (
        f"no filter fits the program of {qubits} qubits: {why}; {sparse}; and the dense register "
        f"needs {needed}, of {memory / _GIBIBYTE:.1f} GiB that are free"
    )


def _named(objection: Objection) -> str:
    return f"record {objection.record} ({record_name(objection.opcode)})"
