"""States of stim, an independent stabilizer simulator, for comparison with a Clifford filter."""

from __future__ import annotations

import importlib
from collections.abc import Sequence
from typing import Any

from nimbrel.clifford import Tableau, parse_tableau

from support.clifford import CliffordFilter

stim: Any = importlib.import_module("stim")  # it has no types


def tableau_of(filter_: CliffordFilter) -> Tableau:
    """The tableau as printed. The width must be at most 64 or a multiple of 64."""
    return parse_tableau(filter_.tableau())


def canonical(rows: Sequence[str]) -> list[str]:
    """The state of these generators in stim's canonical form. Equal states give equal lists."""
    simulator = stim.TableauSimulator()
    simulator.set_state_from_stabilizers([stim.PauliString(row) for row in rows])
    return canonical_of(simulator)


def canonical_of(simulator: Any) -> list[str]:
    return [str(row) for row in simulator.canonical_stabilizers()]
