"""A model of the Clifford filter: runs records; has its tableau, flags and error texts.

Written independently of the engine. The model does not know what the engine draws: a drawn outcome
is a variable, also in a flag that stores it, until `settle` gets the draws. Until then no record
may use such a flag as its condition or operand.
"""

from __future__ import annotations

import math
from collections.abc import Callable, Iterable, Iterator
from typing import NamedTuple

from models import opcodes
from models.program import NO_REGISTER, ModelError, Pair, WideProgramModel
from models.tableau import Outcome, Tableau
from models.wire import WORD, Record, set_bits, signed

REFUSED = {
    opcodes.PCP: "qc.pcp",
    opcodes.LELBOW: "qc.lelbow",
    opcodes.RELBOW: "qc.relbow",
    opcodes.RX: "qc.rx",
    opcodes.RY: "qc.ry",
    opcodes.T: "qc.t",
    opcodes.T_INV: "qc.t_inv",
    opcodes.ROOTX: "qc.rootx",
    opcodes.ROOTX_INV: "qc.rootx_inv",
    opcodes.ROOTY: "qc.rooty",
    opcodes.ROOTY_INV: "qc.rooty_inv",
}
IGNORED = opcodes.MARKERS
NO_PEEK_MASK = "qc.peek_read_probability() must specify at least one qubit to measure."
ONE_QUBIT_ONLY = (
    "qc.peek_read_probability() in Clifford sim must specify exactly one qubit to measure."
)
NO_POSTSELECT_MASK = "qc.postselect() must specify at least one qubit to postselect."
NO_MATCH = "qc.postselect() no non-zero terms have the desired value."
NO_PUSH = "qc.push_state() has not been implemented for the Clifford sim."
NO_CONDITIONS = {
    opcodes.S: "qc.s() can't have conditions in the Clifford sim.",
    opcodes.S_INV: "qc.s_inv() can't have conditions in the Clifford sim.",
    opcodes.Y: "qc.y() cannot have conditions for Clifford sim.",
    opcodes.H: "qc.had() can't have conditions in the Clifford sim.",
    opcodes.SWAP: "qc.swap() can't have conditions in the Clifford sim.",
}
ONE_CONDITION = "can only have one condition for Clifford sim."
TWO_TARGETS = "qc.swap() must specify exactly two target qubits."
NO_CONDITION_MASKS = "qc.ppr() cannot have condition masks in the Clifford sim."
EIGHTHS_ONLY = "qc.ppr() angles must be multiples of pi/4 for Clifford sim."
TURNS = {90.0: opcodes.S, -90.0: opcodes.S_INV, 180.0: opcodes.Z}


def outside(qubit: int, num_qubits: int) -> str:
    """The error text for a qubit outside the register."""
    return f"Error: qubit {qubit} lies outside the register of {num_qubits} qubits."


def int32(value: float) -> int:
    """A double truncated to a signed 32-bit integer. Out-of-range values become the lowest one."""
    whole = math.trunc(value) if math.isfinite(value) else 1 << 40
    return whole if -(2**31) <= whole < 2**31 else -(2**31)


def wrapped32(number: int) -> int:
    return (number + 2**31) % 2**32 - 2**31


def qubits_of(pairs: Iterable[Pair]) -> list[int]:
    """The qubits that wide masks name, in walking order."""
    return [
        (pair.offset + bit.bit_length() - 1) & WORD for pair in pairs for bit in set_bits(pair.mask)
    ]


class Letter(NamedTuple):
    """One factor of a Pauli product: X, Z, or Y for both."""

    qubit: int
    x: bool
    z: bool


class Entry:
    """The part of a Pauli product that one pair of masks names, from qubit `base` on."""

    def __init__(self, base: int) -> None:
        self.base = base
        self.masks = {"x": 0, "z": 0}

    def places(self) -> Iterator[int]:
        return (bit.bit_length() - 1 for bit in set_bits(self.masks["x"] | self.masks["z"]))

    def letters(self) -> list[Letter]:
        return [
            Letter(
                (self.base + place) & WORD,
                bool(self.masks["x"] >> place & 1),
                bool(self.masks["z"] >> place & 1),
            )
            for place in self.places()
        ]


class CliffordModel(WideProgramModel):
    """One Clifford filter: its tableau, its read flags and its open jump."""

    def __init__(self) -> None:
        super().__init__()
        self.state: Tableau | None = None
        self.stored: list[tuple[int, Outcome]] = []  # flags with outcomes that may be open
        self._calls: dict[int, Callable[[Record], None]] = {
            opcodes.X: self._x,
            opcodes.Z: self._z,
            opcodes.PHASE: self._phase,
            opcodes.RZ: self._rz,
            opcodes.SWAP: self._swap,
            opcodes.PPR: self._ppr,
            opcodes.PPM: self._ppm,
            opcodes.READ: self._read,
            opcodes.WRITE: self._write,
            opcodes.CLEAR: self._clear,
            opcodes.FREE: self._clear,
            opcodes.RESET: self._reset,
            opcodes.EXTEND: self._extend,
            **dict.fromkeys((opcodes.S, opcodes.S_INV, opcodes.Y, opcodes.H), self._plain_gate),
        }

    # Calls other than records.

    def text(self) -> str:
        """The printed tableau."""
        return self._tableau().text()

    def probability(self, value: int, mask: int) -> float:
        tableau = self._tableau()
        if mask == 0:
            raise ModelError(NO_PEEK_MASK)
        if mask & mask - 1:
            raise ModelError(ONE_QUBIT_ONLY)
        qubit = mask.bit_length() - 1
        self._require_inside([qubit])
        outcome = tableau.fixed_outcome(qubit)
        if outcome is None:
            return 0.5
        return float(outcome.bit == (value >> qubit & 1))

    def postselect(self, value: int, mask: int) -> None:
        if mask == 0:
            raise ModelError(NO_POSTSELECT_MASK)
        probability = self.probability(value, mask)
        if probability == 0.0:
            raise ModelError(NO_MATCH)
        if probability == 0.5:
            qubit = mask.bit_length() - 1
            _, row = self._tableau().reduced_z(qubit)
            row.phase = 2 * (value >> qubit & 1)
            self._tableau().project(row, qubit)

    def settle(self, ones: int) -> None:
        """Inserts the drawn outcomes. `ones` is the mask of the draws that gave 1."""
        if self.state is not None:
            self.state.settle(ones)
        for flag, outcome in self.stored:
            self.flags.set(flag, outcome.known(ones))
        self.stored.clear()

    # Dispatch.

    def _operate(self, low: int, record: Record) -> bool:
        if low in REFUSED:
            raise ModelError(f"{REFUSED[low]} has not been implemented for the Clifford sim.")
        if low in self._calls:
            self._calls[low](record)
            return True
        return low in IGNORED

    def _reset(self, record: Record) -> None:
        assert self.state is None or self.state.num_draws == 0, "outcomes of the old register"
        self.state = Tableau(record.target_mask)

    def _tableau(self) -> Tableau:
        if self.state is None:
            raise ModelError(NO_REGISTER)
        return self.state

    def _acts(self, record: Record) -> bool:
        self._tableau()
        return self.flags.holds(record.cond_flag)

    def _require_inside(self, qubits: Iterable[int]) -> None:
        num_qubits = self._tableau().num_qubits
        for qubit in qubits:
            if qubit >= num_qubits:
                raise ModelError(outside(qubit, num_qubits))

    def _take_qubits(self, record: Record) -> tuple[list[int], list[int]]:
        """The targets and the controls of a gate. Uses up the extensions."""
        targets = self._take_targets(record)
        conds = self._take_conds(record.cond_mask, record.cond_neg_mask, record.cond_offset)
        self._drop_extensions()
        return qubits_of(targets), qubits_of(conds)

    # Gates.

    def _start(self, low: int, record: Record) -> list[int] | None:
        """The targets of a gate without controls, or None if the gate does not act.

        They may lie outside the register.
        """
        if not self._acts(record):
            return None
        if record.cond_mask:
            raise ModelError(NO_CONDITIONS[low])
        return self._take_qubits(record)[0]

    def _plain_gate(self, record: Record) -> None:
        self._gate_on_each(record.opcode & 0xFFFFFFFF, record)

    def _gate_on_each(self, low: int, record: Record) -> None:
        tableau = self._tableau()
        gates = {
            opcodes.S: tableau.sgate,
            opcodes.S_INV: tableau.s_inverse,
            opcodes.Y: tableau.py,
            opcodes.H: tableau.had,
        }
        targets = self._start(low, record) or []
        self._require_inside(targets)
        for qubit in targets:
            gates[low](qubit)

    def _x(self, record: Record) -> None:
        if not self._acts(record):
            return
        targets, conds = self._take_qubits(record)
        if not record.cond_mask:
            conds = []
        elif len(conds) != 1:
            raise ModelError(f"qc.x() {ONE_CONDITION}")
        self._require_inside(targets + conds)
        for target in targets:
            if conds:
                self._tableau().cnot(conds[0], target)
            else:
                self._tableau().px(target)

    def _z(self, record: Record) -> None:
        if not self._acts(record):
            return
        targets, conds = self._take_qubits(record)
        if not record.cond_mask:
            conds = []
        elif len(conds) != 1 and (len(conds) != 2 or targets):
            raise ModelError(f"qc.z() {ONE_CONDITION}")
        self._require_inside(targets + conds)
        self._act_with_z(targets, conds)

    def _act_with_z(self, targets: list[int], conds: list[int]) -> None:
        tableau = self._tableau()
        if len(conds) == 2:
            tableau.cz(*conds)
        elif conds and targets:
            for target in targets:
                tableau.cz(conds[0], target)
        else:
            for qubit in targets + conds:
                tableau.pz(qubit)

    def _phase(self, record: Record) -> None:
        self._turn("qc.phase()", record)

    def _rz(self, record: Record) -> None:
        self._turn("qc.rz()", record)

    def _turn(self, name: str, record: Record) -> None:
        low = TURNS.get(record.angle)
        if low is None:
            raise ModelError(f"{name} has not been implemented for the Clifford sim.")
        if low == opcodes.Z:
            self._z(record)
        else:
            self._gate_on_each(low, record)

    def _swap(self, record: Record) -> None:
        targets = self._start(opcodes.SWAP, record)
        if targets is None:
            return
        if len(targets) != 2:
            raise ModelError(TWO_TARGETS)
        self._require_inside(targets)
        a, b = targets
        for control, target in ((a, b), (b, a), (a, b)):
            self._tableau().cnot(control, target)

    # Measurements.

    def _store(self, flag: int, outcome: Outcome) -> int:
        """Stores an outcome in a flag and returns the next flag, or 0 after the last."""
        if flag == 0:
            return 0
        self.stored.append((flag, outcome))
        return signed(flag + 1)

    def _read(self, record: Record) -> None:
        if not self._acts(record):
            return
        targets = qubits_of(self._take_targets(record))
        self._drop_extensions()
        self._require_inside(targets)
        flag = record.read_flag
        for qubit in targets:
            flag = self._store(flag, self._tableau().measure(qubit))

    def _clear(self, record: Record) -> None:
        self._write(record._replace(cond_mask=0, read_flag=0))

    def _write(self, record: Record) -> None:
        if not self._acts(record):
            return
        targets = qubits_of(self._take_targets(record))
        values = self._take_conds(record.cond_mask, 0, record.cond_offset)
        self._drop_extensions()
        self._require_inside(targets)
        flag = record.read_flag
        for qubit in targets:
            outcome = self._tableau().measure(qubit)
            wanted = next(
                (v.mask >> (qubit - v.offset) & 1 for v in values if 0 <= qubit - v.offset < 64), 0
            )
            self._tableau().px(qubit, outcome._replace(bit=outcome.bit ^ wanted))
            flag = self._store(flag, outcome)

    # Pauli products.

    def _product(self, record: Record) -> list[Entry]:
        """The entries of a product, one for each base; a later mask replaces an earlier one."""
        entries: list[Entry] = []
        xs = [Pair(record.target_mask, record.target_offset)] if record.target_mask else []
        zs = [Pair(record.cond_mask, record.cond_offset)] if record.cond_mask else []
        put_masks(entries, "x", xs)
        put_masks(entries, "z", zs)
        put_masks(entries, "x", self.extra_targets)
        put_masks(entries, "z", self.extra_conds)
        self._drop_extensions()
        return entries

    def _fold(self, record: Record) -> tuple[int, list[Letter]]:
        """Turns the product into a Z on its pivot; answers that and the letters."""
        entries = self._product(record)
        pivot = next(entries[0].places())
        letters = [letter for entry in entries for letter in entry.letters()]
        self._require_inside([pivot, *(letter.qubit for letter in letters)])
        tableau = self._tableau()
        for qubit, x, z in letters:
            if x and z:
                tableau.s_inverse(qubit)
            if x:
                tableau.had(qubit)
            if qubit != pivot:
                tableau.cnot(qubit, pivot)
        return pivot, letters

    def _unfold(self, pivot: int, letters: list[Letter]) -> None:
        tableau = self._tableau()
        for qubit, x, z in reversed(letters):
            if qubit != pivot:
                tableau.cnot(qubit, pivot)
            if x:
                tableau.had(qubit)
            if x and z:
                tableau.sgate(qubit)

    def _ppr(self, record: Record) -> None:
        if record.read_flag:
            raise ModelError(NO_CONDITION_MASKS)
        idle = record.angle == 0.0 or not (record.target_mask | record.cond_mask)
        if not self._acts(record) or idle:
            return
        pivot, letters = self._fold(record)
        whole = int32(record.angle)
        turn = wrapped32(2 * whole) % 360
        if whole != record.angle or turn % 90:
            raise ModelError(EIGHTHS_ONLY)
        self._turn_about_z(turn, pivot)
        self._unfold(pivot, letters)

    def _turn_about_z(self, turn: int, qubit: int) -> None:
        tableau = self._tableau()
        if turn >= 180:
            tableau.pz(qubit)
        if turn % 180:
            tableau.sgate(qubit)

    def _ppm(self, record: Record) -> None:
        if not self._acts(record) or not (record.target_mask | record.cond_mask):
            return
        pivot, letters = self._fold(record)
        outcome = self._measure_signed(pivot, negative=int32(record.angle) == -1)
        self._unfold(pivot, letters)
        self._store(record.read_flag, outcome)

    def _measure_signed(self, qubit: int, *, negative: bool) -> Outcome:
        tableau = self._tableau()
        if negative:
            tableau.px(qubit)
        outcome = tableau.measure(qubit)
        if negative:
            tableau.px(qubit)
        return outcome


def put_masks(entries: list[Entry], part: str, pairs: Iterable[Pair]) -> None:
    """Sets one mask in the entry of each pair's base. A pair without bits creates no entry."""
    for mask, base, _ in pairs:
        entry = next((entry for entry in entries if entry.base == base), None)
        if entry is None and mask:
            entry = Entry(base)
            entries.append(entry)
        if entry is not None:
            entry.masks[part] = mask
