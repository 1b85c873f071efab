"""Runs one program on many ranks: straight runs of gates, and what stands between them."""

from __future__ import annotations

from typing import Final

import numpy as np

from nimbrel.batch_positions import truncated
from nimbrel.mpi.agreement import mark
from nimbrel.mpi.control_flow import running
from nimbrel.mpi.flags import ReadFlags
from nimbrel.mpi.look_ahead import ahead_masks
from nimbrel.mpi.measuring import Measuring
from nimbrel.mpi.operations import (
    ANGLE,
    CONTROLS,
    PAIR_GATES,
    PHASES,
    READ_FLAG,
    TARGETS,
    OpcodeSet,
)
from nimbrel.mpi.pauli_batches import PauliBatch
from nimbrel.mpi.refusals import Before
from nimbrel.mpi.register import Register
from nimbrel.opcodes import Opcode
from nimbrel.records import Record, pack
from nimbrel.register_trace import Words
from nimbrel.suspect_search import as_words

__all__ = ["ProgramRun"]

_GATES: Final = OpcodeSet(
    *(*PAIR_GATES.opcodes, *PHASES.opcodes), Opcode.SWAP, Opcode.PPR, Opcode.PCP
)
_BETWEEN: Final = OpcodeSet(
    *(Opcode.READ, Opcode.WRITE, Opcode.CLEAR, Opcode.FREE),
    *(Opcode.PPM, Opcode.RESET, Opcode.FLAG_NAND),
)
"""The records that change a read flag, draw, or make a register."""
_LOOK_AHEAD: Final = 4096
"""Records behind a run of gates that its exchanges are chosen for."""


class ProgramRun:
    """Runs programs one after another on one register.

    A jump that is open at the end of a program, and a batch of Pauli products, go on in the next.
    """

    def __init__(self, register: Register, measuring: Measuring, flags: ReadFlags) -> None:
        """Take what the programs act on."""
        self._register = register
        self._measuring = measuring
        self._flags = flags
        self._batch = PauliBatch()
        self._open_label = 0

    @property
    def before(self) -> Before:
        """What the next program finds."""
        return Before(
            self._register.num_qubits or None, bool(self._open_label), self._batch.x_letters
        )

    def __call__(self, words: Words, name: bytes) -> None:
        """Run a program.

        Args:
            words: The program, shape (n, 11).
            name: Stands for the program: another one has another name.

        Raises:
            RuntimeError: On all ranks, with the engine's text.
            MemoryError: On all ranks, if a rank has no memory for its part.
        """
        between = np.flatnonzero(_BETWEEN.among(words[:, 0]))
        ahead = ahead_masks(words) if self._register.comm.size > 1 else words[:0, TARGETS]
        start = 0
        for stop in [*between.tolist(), len(words) - 1]:
            if stop < start:
                continue
            section = words[start : stop + 1]
            key = (name, start)
            start = stop + 1
            self._section(section, ahead[start : start + _LOOK_AHEAD], key)

    def _section(self, section: Words, ahead: Words, key: tuple[bytes, int]) -> None:
        """Run records of which the last one alone may change a read flag.

        Args:
            section: The records, shape (n, 11).
            ahead: What the records behind these mix, shape (m,).
            key: Stands for both.
        """
        runs, open_label = running(section, self._open_label, self._flags.hold)
        gates = np.flatnonzero(runs & _GATES.among(section[:, 0]))
        if len(gates):
            expansion = self._batch.expand(section[gates], self._register.num_qubits)
            whole_key = None if expansion.had_batches else (*key, np.packbits(runs).tobytes())
            self._register.run(expansion.gates, ahead, whole_key)
            if expansion.error is not None:
                before = section[: gates[expansion.records]]
                self._open_label = running(before, self._open_label, self._flags.hold)[1]
                raise mark(expansion.error)
        self._open_label = open_label
        last = len(section) - 1
        if runs[last] and _BETWEEN.among(section[last:, 0])[0]:
            self._between(section[last:], ahead)

    def _between(self, words: Words, ahead: Words) -> None:
        """Carry out one record that is no gate, shape (1, 11)."""
        row = words[0]
        opcode, targets = int(row[0]), int(row[TARGETS])
        flag = int(row[READ_FLAG].astype(np.int64))
        everything = (1 << self._register.num_qubits) - 1
        if opcode == Opcode.RESET:
            self._register.reset(targets)
        elif opcode == Opcode.FLAG_NAND:
            self._flags.combine(words)
        elif opcode == Opcode.READ:
            self._read(targets & everything, flag)
        elif opcode == Opcode.WRITE:
            self._write(targets & everything, int(row[CONTROLS]), flag, ahead)
        elif opcode == Opcode.PPM:
            self._measure_product(row, flag, everything, ahead)
        else:
            self._write(targets & everything, 0, 0, ahead)

    def _read(self, mask: int, flag: int) -> int:
        value = self._measuring.read(mask)
        qubits = [qubit for qubit in range(self._register.num_qubits) if mask >> qubit & 1]
        self._flags.store(flag, [value >> qubit & 1 for qubit in qubits])
        return value

    def _write(self, mask: int, value: int, flag: int, ahead: Words) -> None:
        everything = (1 << self._register.num_qubits) - 1
        if mask == everything:
            if value > everything:
                raise mark(
                    RuntimeError(
                        f"Error: qc.write() value {value} lies outside the register of "
                        f"{self._register.num_qubits} qubits."
                    )
                )
            self._measuring.write_all(value)
            return
        wrong = (self._read(mask, flag) ^ value) & mask
        if wrong:
            self._register.run(as_words(pack([Record(Opcode.X, wrong)])), ahead)

    def _measure_product(self, row: Words, flag: int, everything: int, ahead: Words) -> None:
        x_mask, z_mask = int(row[TARGETS]) & everything, int(row[CONTROLS]) & everything
        outcome = self._measuring.measure_product(x_mask, z_mask, ahead)
        sign = float(row[ANGLE : ANGLE + 1].view(np.float64)[0])
        self._flags.store(flag, [outcome ^ (truncated(sign) == -1)])
