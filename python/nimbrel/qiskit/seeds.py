"""Seeds of independent draws."""

from __future__ import annotations

import numpy as np


def seeds_for(seed: int | None, count: int) -> list[int | None]:
    """Seeds of a number of draws, 32 bits each.

    Args:
        seed: The seed from which they follow; one draw has this seed itself if it has 32 bits.
            None gives no seeds.
        count: Number of draws.

    Raises:
        ValueError: If the seed is negative.
    """
    if seed is None:
        return [None] * count
    if count == 1 and 0 <= seed < 2**32:
        return [seed]
    return [int(word) for word in np.random.SeedSequence(seed).generate_state(count)]
