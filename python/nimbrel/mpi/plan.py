"""The plan of a run of gates on many ranks: what goes to the engine, and when ranks exchange.

It depends on the records and the placement alone. So every rank makes the same plan, and no rank
asks another one.
"""

from __future__ import annotations

from collections.abc import Iterator
from typing import NamedTuple

import numpy as np

from nimbrel.mpi.look_ahead import NEVER, Uses, plain_masks
from nimbrel.mpi.opcode_words import SWAP, X
from nimbrel.mpi.operations import CONTROLS, NEGATED, TARGETS
from nimbrel.mpi.placement import Placement
from nimbrel.register_trace import Words

__all__ = ["Exchange", "Gates", "choose_exchange", "steps"]


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
    if len(placement.numbers) == 1:
        # One rank needs no freedom for its swaps. The order of the terms is worth more.
        if len(words):
            yield Gates(words)
        return
    masks = plain_masks(words)
    uses = Uses(np.concatenate((masks, ahead)), placement.num_qubits)
    swaps = iter([*np.flatnonzero(words[:, 0] == SWAP).tolist(), len(words)])
    start, next_swap, next_uses = 0, next(swaps), uses.behind(0)
    while start < len(words):
        stop = min(next_swap, *(next_uses[qubit] for qubit in placement.global_qubits()))
        if stop > start:
            yield Gates(words[start:stop])
            next_uses = uses.behind(stop)
        if stop == len(words):
            return
        if not _renumber(words[stop], placement):
            yield choose_exchange(placement, int(masks[stop]), next_uses)
            start = stop
            continue
        start = stop + 1
        if stop == next_swap:
            next_swap = next(swaps)
        else:
            next_uses = uses.behind(start)


def _renumber(row: Words, placement: Placement) -> bool:
    """Carry out a swap, or a flip among the ranks' numbers, by the placement alone."""
    opcode, targets, controls, negated = (
        int(row[word]) for word in (0, TARGETS, CONTROLS, NEGATED)
    )
    if opcode == SWAP:
        placement.exchange((targets & -targets).bit_length() - 1, targets.bit_length() - 1)
        return True
    global_mask = placement.global_mask
    if opcode != X or controls & ~global_mask:
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
        uses: The record that mixes each qubit next, or `NEVER`.
    """
    local, places = placement.num_local, placement.places
    # Among qubits that are mixed no more, the highest place goes: its halves are contiguous.
    leaving = sorted(
        (-uses[qubit], -place, qubit)
        for qubit, place in enumerate(places)
        if place < local and not needed >> qubit & 1
    )
    entering = sorted(
        (not needed >> qubit & 1, uses[qubit], qubit) for qubit in placement.global_qubits()
    )
    pairs = []
    for (is_free, use, new), (minus_use, _, old) in zip(entering, leaving, strict=False):
        if is_free and (use >= -minus_use or use == NEVER):
            break
        pairs.append((places[new] - local, places[old]))
        placement.exchange(new, old)
    return Exchange(tuple(pairs))
