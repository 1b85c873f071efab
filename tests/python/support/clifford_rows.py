"""The rows that gates have changed, in letters and qubit numbers."""

from __future__ import annotations

import re

from nimbrel.clifford import parse_tableau

from support.clifford import CliffordFilter


def short(row: str) -> str:
    """A row by its letters alone: "+X0 Z70" for X on qubit 0 and Z on qubit 70, "+1" for none."""
    sign, letters = re.fullmatch(r"([+-]i?)([_XYZ]*)", row).groups()  # type: ignore[union-attr]
    named = [f"{letter}{qubit}" for qubit, letter in enumerate(letters) if letter != "_"]
    return str(sign) + (" ".join(named) or "1")


def changes(filter_: CliffordFilter) -> dict[str, str]:
    """The rows that differ from those after the reset. The keys are the rows after the reset.

    A fresh register of two qubits has the generators Z0 and Z1 and the destabilizers X0 and X1, so
    an X on qubit 1 gives {"Z1": "-Z1"}. Widths must be at most 64 or a multiple of 64, where the
    printed text shows every qubit.
    """
    tableau = parse_tableau(filter_.tableau())
    found = {}
    for letter, rows in (("Z", tableau.generators), ("X", tableau.destabilizers)):
        for qubit, row in enumerate(rows):
            if short(row) != f"+{letter}{qubit}":
                found[f"{letter}{qubit}"] = short(row)
    return found
