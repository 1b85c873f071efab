"""The records of a program while it is being read.

Records are kept as tuples of words and become one array at the end. Flags that hold intermediate
results have provisional numbers, because the flags of the classical bits come before them and are
not yet counted.
"""

from collections.abc import Iterable, Sequence
from math import isfinite
from typing import Final, NamedTuple

import numpy as np
import numpy.typing as npt

from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.qasm.flag_numbers import FIRST_FLAG, PROVISIONAL, TRUE
from nimbrel.qasm.gate_calls import GateCall
from nimbrel.qasm.initial_flags import initialised
from nimbrel.qasm.loop_rows import Loop, Place, begin_row, jump_row, without_loop_rows
from nimbrel.records import QPU_OP, Program, RecordArray
from nimbrel.translation.back_jumps import BackJump
from nimbrel.translation.clifford_form import clifford_form
from nimbrel.translation.row_types import Row, Rows
from nimbrel.translation.wide_rows import wide_rows

TABLEAU_QUBITS: Final = 17
"""From this size on, a Clifford program is written for the Clifford filter."""

_WORD: Final = 2**64 - 1
_TURNS: Final = {
    0.0: None,
    45.0: Opcode.T,
    90.0: Opcode.S,
    180.0: Opcode.Z,
    270.0: Opcode.S_INV,
    315.0: Opcode.T_INV,
}
_UNITARY: Final = frozenset(
    {
        *(Opcode.X, Opcode.Y, Opcode.Z, Opcode.H, Opcode.S, Opcode.S_INV, Opcode.T, Opcode.T_INV),
        *(Opcode.ROOTX, Opcode.ROOTX_INV, Opcode.RX, Opcode.RY, Opcode.RZ, Opcode.PHASE),
        *(Opcode.SWAP, Opcode.CLEAR),
    }
)
_MOST_CONDITIONED: Final = 8
"""Longest conditional body whose records have the condition each. A longer one has a jump."""


class Finished(NamedTuple):
    """The records of a whole program.

    Attributes:
        records: The records, the reset first.
        back_jumps: The jumps back of loops, in the order of their positions.
        loop_place: Where the first loop stands in the text, or None.
    """

    records: Program
    back_jumps: tuple[BackJump, ...]
    loop_place: Place | None


class RecordList:
    """The records of one program.

    Attributes:
        rows: The records, words in the order of `QPU_OP`.
    """

    def __init__(self) -> None:
        self.rows: Rows = []
        self._provisional = PROVISIONAL
        self._label = 0
        self._places: list[Place] = []
        self._last_read: tuple[int, int] | None = None  # highest qubit and last flag

    def new_flags(self, count: int) -> list[int]:
        """Provisional flags that nothing else uses."""
        first = self._provisional
        self._provisional += count
        return list(range(first, first + count))

    def new_label(self) -> int:
        """A label that nothing else uses."""
        self._label += 1
        return self._label

    def gates(self, calls: Iterable[GateCall]) -> None:
        """Add the operations of a gate. A phase of the whole state is left out."""
        self._last_read = None
        for call in calls:
            if call.targets or call.controls or call.zeros:
                self._gate(call)

    def _gate(self, call: GateCall) -> None:
        opcode, angle, targets, controls, zeros = call
        if opcode == Opcode.PHASE:
            short = _TURNS.get(angle % 360.0, opcode)
            if short is None:
                return
            if short != opcode:
                opcode, angle = short, 0.0
        if not isfinite(angle):
            raise ValueError(f"the angle {angle} is not finite")
        if not targets:
            if not controls:
                self._phase_of_zeros(call)
                return
            targets, controls = controls[:1], controls[1:]
        self._add(opcode, angle, targets, controls, zeros)

    def _phase_of_zeros(self, call: GateCall) -> None:
        # A phase needs a qubit that is 1, so one negated control is inverted around it.
        first, *others = call.zeros
        flip = GateCall(Opcode.X, 0.0, (first,))
        turned = call._replace(targets=(first,), zeros=tuple(others))
        for each in (flip, turned, flip):
            self._gate(each)

    def _add(
        self,
        opcode: Opcode,
        angle: float,
        targets: Sequence[int],
        controls: Sequence[int] = (),
        zeros: Sequence[int] = (),
        read_flag: int = 0,
    ) -> None:
        # Masks are as wide as the register here; `finish` divides them into words.
        target_mask = mask = negated = 0
        for qubit in targets:
            target_mask |= 1 << qubit
        for qubit in zeros:
            negated |= 1 << qubit
        for qubit in controls:
            mask |= 1 << qubit
        mask |= negated
        self.rows.append((opcode, target_mask, mask, angle, 0, read_flag, negated, 0, 0, 0, 0))

    def clear(self, qubits: Sequence[int]) -> None:
        """Set qubits to 0."""
        self._last_read = None
        if qubits:
            self._add(Opcode.CLEAR, 0.0, qubits)

    def measure(self, qubits: Sequence[int], flags: Sequence[int]) -> None:
        """Measure qubits into flags, one record for as many as rise together."""
        for qubit, result in zip(qubits, flags, strict=True):
            self._measure_one(qubit, result)

    def _measure_one(self, qubit: int, result: int) -> None:
        # A record stores its qubits in ascending order in consecutive flags.
        if self._last_read is not None:
            highest, last = self._last_read
            if qubit > highest and result == last + 1:
                row = self.rows[-1]
                self.rows[-1] = (row[0], int(row[1]) | 1 << qubit, *row[2:])
                self._last_read = (qubit, result)
                return
        self._add(Opcode.READ, 0.0, (qubit,), read_flag=result)
        self._last_read = (qubit, result)

    def store_nand(self, a: int, b: int, result: int) -> None:
        """Store the NAND of two flags; a negative `result` stores the AND."""
        self._last_read = None
        row = (Opcode.FLAG_NAND, a & _WORD, b & _WORD, 0.0, 0, result, 0, 0, 0, 0, 0)
        self.rows.append(row)

    def store(self, value: int, result: int) -> None:
        """Copy a flag, or a constant."""
        if value != result:
            self.store_nand(value, TRUE, -result)

    def jump(self, label: int, flag: int = 0) -> None:
        """Skip the records up to a label if a flag is 1."""
        self._last_read = None
        self.rows.append((Opcode.JUMP_FWD, label, 0, 0.0, flag, 0, 0, 0, 0, 0, 0))

    def label(self, label: int) -> None:
        """End a jump."""
        self._last_read = None
        self.rows.append((Opcode.LABEL, label, 0, 0.0, 0, 0, 0, 0, 0, 0, 0))

    def begin_loop(self, place: Place) -> int:
        """Begin a part that may be repeated; returns the loop's number."""
        self._last_read = None
        self._places.append(place)
        self.rows.append(begin_row(len(self._places) - 1))
        return len(self._places) - 1

    def jump_back(self, loop: int, flag: int) -> None:
        """Jump to the beginning of a loop if a flag is 1."""
        self._last_read = None
        self.rows.append(jump_row(loop, flag))

    def begin_branch(self) -> int:
        """The position where the records of a branch begin."""
        self._last_read = None
        return len(self.rows)

    def take_from(self, position: int) -> Rows:
        """Remove and return the records from a position on."""
        self._last_read = None
        taken = self.rows[position:]
        del self.rows[position:]
        return taken

    def add_branches(self, flag: int, then: Rows, otherwise: Rows) -> None:
        """Add records of which a flag chooses one part."""
        self._last_read = None
        if not otherwise and _may_have_condition(then):
            self.rows += [(*row[:4], flag, *row[5:]) for row in then]
            return
        if not then and not otherwise:
            return
        if not then:
            then, otherwise, flag = otherwise, then, -flag
        after_then = self.new_label()
        self.jump(after_then, -flag)
        self.rows += then
        if otherwise:
            end = self.new_label()
            self.jump(end)
            self.label(after_then)
            self.rows += otherwise
            self.label(end)
        else:
            self.label(after_then)

    def finish(self, num_qubits: int, num_flags: int) -> Finished:
        """Make the program.

        Args:
            num_qubits: Qubits of the register.
            num_flags: Flags of the classical bits, from `FIRST_FLAG` on.
        """
        rows, loops = without_loop_rows(self.rows)
        # A small register is fastest on the dense filter, which has one record for each gate.
        formed = clifford_form(rows) if num_qubits >= TABLEAU_QUBITS else None
        if formed is not None:
            rows, loops = formed[0], [loop.moved(formed[1]) for loop in loops]
        if num_qubits > WORD_BITS:
            rows, starts = wide_rows(rows)
            loops = [loop.moved(starts) for loop in loops]
        # A program of classical bits alone has a qubit that nothing uses: filters need a register.
        reset = (Opcode.RESET, max(num_qubits, 1), 0, 0.0, 0, 0, 0, 0, 0, 0, 0)
        records = np.array([reset, *rows], dtype=QPU_OP)
        shift = FIRST_FLAG + num_flags - PROVISIONAL
        _renumber_flags(records, shift)
        first = initialised(records, range(FIRST_FLAG, FIRST_FLAG + num_flags))
        whole = np.concatenate([records[:1], first, records[1:]])
        return Finished(
            whole.view(Program),
            tuple(
                BackJump(end + 1 + len(first), flag + shift, start + 1 + len(first))
                for _, start, end, flag in loops
            ),
            self._first_place(loops),
        )

    def _first_place(self, loops: Sequence[Loop]) -> Place | None:
        return self._places[min(loops, key=lambda loop: loop.start).number] if loops else None


def _may_have_condition(rows: Sequence[Row]) -> bool:
    if len(rows) > _MOST_CONDITIONED:
        return False
    return all(row[0] in _UNITARY and row[4] == 0 for row in rows)


def _renumber_flags(records: RecordArray, shift: int) -> None:
    for name in ("cond_flag", "read_flag"):
        _renumber(records[name], shift)
    nands = records["opcode"] == Opcode.FLAG_NAND
    for name in ("target_mask", "cond_mask"):
        operands = records[name][nands].view(np.int64)
        _renumber(operands, shift)
        records[name][nands] = operands.view(np.uint64)


def _renumber(flags: npt.NDArray[np.int64], shift: int) -> None:
    provisional = np.abs(flags) >= PROVISIONAL
    flags[provisional] += np.sign(flags[provisional]) * shift
