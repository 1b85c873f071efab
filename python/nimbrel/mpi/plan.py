"""The plan of a run of gates on many ranks: what goes to the engine, and when ranks exchange.

It depends on the records and the placement alone. So every rank makes the same plan, and no rank
asks another one.
"""

from __future__ import annotations

from collections.abc import Iterator
from typing import Final, NamedTuple

import numpy as np

from nimbrel.mpi.look_ahead import NEVER, next_uses, plain_masks
from nimbrel.mpi.operations import CONTROLS, NEGATED, TARGETS, Bools
from nimbrel.mpi.placement import Placement
from nimbrel.opcodes import Opcode
from nimbrel.register_trace import Words

__all__ = ["Exchange", "Gates", "choose_exchange", "steps"]

_FIRST_WINDOW: Final = 256
"""Records of the first search for the next exchange. Each further one has twice as many."""


class Gates(NamedTuple):
    """Records in plain form that each rank carries out alone, shape (n, 11)."""

    words: Words


class Exchange(NamedTuple):
    """Qubits in the numbers of the ranks that exchange their places with qubits inside the parts.

    The placement has changed already. Pairs hold (bit of the number, bit of an index into a part).

    Attributes:
        pairs: The bits.
    """

    pairs: tuple[tuple[int, int], ...]


def steps(words: Words, placement: Placement, ahead: Words) -> Iterator[Gates | Exchange]:
    """Plan a run of gates.

    The placement changes between two steps, so a step must be taken before the next is asked for.

    Args:
        words: Gates in plain form, shape (n, 11).
        placement: The placement before the run; afterwards the one behind it.
        ahead: What the records behind these mix, shape (m,).
    """
    masks = plain_masks(words)
    is_swap = words[:, 0] == Opcode.SWAP
    # One rank needs no freedom. There the order of the terms is worth more.
    relabels = is_swap if len(placement.numbers) > 1 else np.zeros_like(is_swap)
    start = 0
    while start < len(words):
        stop = _next_stop(masks, relabels, start, np.uint64(placement.global_mask))
        if stop > start:
            yield Gates(words[start:stop])
        if stop == len(words):
            return
        if _renumber(words[stop], placement):
            start = stop + 1
            continue
        uses = next_uses((masks[stop:], ahead), placement.num_qubits)
        yield choose_exchange(placement, int(masks[stop]), uses)
        start = stop


def _next_stop(masks: Words, relabels: Bools, start: int, global_mask: np.uint64) -> int:
    """The index of the next record that no rank can carry out alone, or the number of records."""
    size = _FIRST_WINDOW
    while start < len(masks):
        window = slice(start, start + size)
        found = relabels[window] | (masks[window] & global_mask != 0)
        place = int(found.argmax())
        if found[place]:
            return start + place
        start += size
        size *= 2
    return len(masks)


def _renumber(row: Words, placement: Placement) -> bool:
    """Carry out a swap, or a flip among the ranks' numbers, by the placement alone."""
    opcode, targets, controls, negated = (
        int(row[word]) for word in (0, TARGETS, CONTROLS, NEGATED)
    )
    if opcode == Opcode.SWAP:
        placement.exchange((targets & -targets).bit_length() - 1, targets.bit_length() - 1)
        return True
    global_mask = placement.global_mask
    if opcode != Opcode.X or controls & ~global_mask:
        return False
    placement.flip(targets, controls, negated)
    return True


def choose_exchange(placement: Placement, needed: int, uses: list[int]) -> Exchange:
    """Choose the qubits of an exchange, and change the placement.

    The local qubits that are mixed last leave (L. A. Belady, "A study of replacement algorithms for
    a virtual-storage computer", https://doi.org/10.1147/sj.52.0078). A further qubit in the ranks'
    numbers enters if it is mixed before the local qubit that would leave for it: one step with
    several qubits sends less than several steps.

    Args:
        placement: The placement.
        needed: The qubits that the next record mixes.
        uses: How many records pass until each qubit is mixed.
    """
    # Among qubits that are mixed no more, the highest place goes: its halves are contiguous.
    leaving = sorted(
        (qubit for qubit in placement.local_qubits() if not needed >> qubit & 1),
        key=lambda qubit: (-uses[qubit], -placement.places[qubit]),
    )
    entering = sorted(
        placement.global_qubits(), key=lambda qubit: (not needed >> qubit & 1, uses[qubit])
    )
    pairs = []
    for new, old in zip(entering, leaving, strict=False):
        if not needed >> new & 1 and (uses[new] >= uses[old] or uses[new] == NEVER):
            break
        pairs.append((placement.places[new] - placement.num_local, placement.places[old]))
        placement.exchange(new, old)
    return Exchange(tuple(pairs))
