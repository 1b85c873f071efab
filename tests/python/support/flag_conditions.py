"""Classical conditions with their meaning in the table of read flags."""

import pytest

# Requires flag 2 at 1, flag 3 at 0, and no flag stored from 64 on.
CONDITIONS = pytest.mark.parametrize(
    ("flag", "acts"),
    [
        (0, True),
        (1, True),
        (-1, False),
        (2, True),
        (-2, False),
        (3, False),
        (-3, True),
        (100_000_002, True),
        (-100_000_003, True),
        (64, False),  # a flag beyond the stored words reads as 0 with either sign
        (-64, False),
        (-(2**63), False),
    ],
)
