"""The builders of gates, for tests that run on each of them."""

from __future__ import annotations

from typing import Any

import nimbrel as nb

PLAIN: tuple[Any, ...] = (
    *(nb.h, nb.x, nb.y, nb.z, nb.s, nb.s_inv, nb.t, nb.t_inv),
    *(nb.rootx, nb.rootx_inv, nb.rooty, nb.rooty_inv, nb.lelbow, nb.relbow),
)
"""Those without parameters."""

ANGLED: tuple[Any, ...] = (nb.phase, nb.rx, nb.ry, nb.rz)
"""Those with an angle in degrees."""
