"""One client of the service: its records, the limits on them, and the replies.

This module knows nothing of connections. A call of the engine cannot be interrupted. So a record
that may take long runs in a separate call, and the other clients wait for one record at most.
"""

import time
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Final

import numpy as np

from nimbrel.opcodes import Opcode
from nimbrel.records import QPU_OP, RecordArray
from nimbrel.service.replies import reply_to
from nimbrel.simulator import Simulator

MAX_EXTENSIONS: Final = 4096  # that wait for one operation
MAX_OPEN_EVENTS: Final = 65536  # in one session, closed events included
TURN_SECONDS: Final = 0.05  # the turn of one client
QUICK_RECORDS: Final = 64  # in one call of the engine

# Largest registers on which every record takes less than half a millisecond. On a bit filter the
# time depends on the words that a record names and not on the register.
QUICK_QUBITS: Final = {
    "StreamQPU": 10,
    "StreamSparseQPU": 10,
    "StreamBitQPU": 2**64 - 1,
    "StreamCliffordQPU": 64,
}

_JUMP_FAMILY_BYTE: Final = 0x16  # low byte of the opcodes of jumps and labels
_OPEN_EVENTS: Final = (Opcode.OPEN_EVENT, Opcode.OPEN_EVENT_2)
# Records that are counted or answered, and so run in separate calls. Jumps and labels do, too.
_COUNTED: Final = np.array(
    [Opcode.RESET, Opcode.EXTEND, Opcode.FETCH_REQUEST, *_OPEN_EVENTS], dtype=np.uint64
)


class RefusalError(Exception):
    """A client has sent something that is not served. The text gives the reason."""


@dataclass(frozen=True)
class Limits:
    """The limits of one client, and the number of clients.

    Attributes:
        clients: Largest number of clients at a time.
        qubits: Largest register of a client.
        records: Largest number of records of a client.
        idle_seconds: Longest wait for a client that sends nothing or reads no replies.
    """

    clients: int
    qubits: int
    records: int
    idle_seconds: float


class Allowance:
    """Counts what one client has used of its limits, except the number of records.

    Attributes:
        widest: Qubits of the largest register that a reset of the client has named. A later
            smaller reset does not lower it, because a jump may skip that reset.
    """

    def __init__(self, limits: Limits) -> None:
        """Start with nothing used."""
        self._limits = limits
        self.widest = 0
        self._events = 0
        self._extensions = 0
        self._before_jumps = 0

    def admit(self, opcode: int, target_mask: int) -> None:
        """Count a record that is about to run.

        Args:
            opcode: The record's opcode.
            target_mask: The record's `target_mask`; the register's size if it is a reset.

        Raises:
            RefusalError: If the record exceeds a limit.
        """
        if opcode == Opcode.RESET:
            if target_mask > self._limits.qubits:
                raise RefusalError(f"a register of {target_mask} qubits")
            self.widest = max(self.widest, target_mask)
        if opcode in _OPEN_EVENTS:
            self._events += 1
            if self._events > MAX_OPEN_EVENTS:
                raise RefusalError(f"more than {MAX_OPEN_EVENTS} opened events")
        self._count_extensions(opcode)

    def _count_extensions(self, opcode: int) -> None:
        """Count the extension records that may wait in the engine for an operation.

        An extension record waits for the next operation that is not skipped. What a jump skips
        depends on flags. So the extension records before a jump may wait for ever, and they count
        in all later sums.
        """
        if opcode == Opcode.EXTEND:
            self._extensions += 1
            if self._before_jumps + self._extensions > MAX_EXTENSIONS:
                raise RefusalError(f"more than {MAX_EXTENSIONS} extensions of one operation")
        elif opcode == Opcode.JUMP_FWD:
            self._before_jumps += self._extensions
            self._extensions = 0
        elif opcode & 0xFF != _JUMP_FAMILY_BYTE:
            self._extensions = 0


class Session:
    """One client's filter, and the bytes of a record that has arrived in part.

    Attributes:
        num_records: Records that have run.
    """

    def __init__(self, sim: Simulator, limits: Limits, quick_qubits: int = 0) -> None:
        """Serve records on a filter.

        Args:
            sim: The filter. The caller closes it.
            limits: The limits of the client.
            quick_qubits: Largest register on which many records run in one call of the engine.
        """
        self._sim = sim
        self._most_records = limits.records
        self._allowance = Allowance(limits)
        self._quick_qubits = quick_qubits
        self._partial = b""
        self._replies = bytearray()
        self.num_records = 0

    def feed(self, data: bytes) -> Iterator[None]:
        """Run the records that have arrived whole, in turns.

        Args:
            data: The bytes that have arrived since the last call.

        Yields:
            None at the end of each turn, so that other clients can have their turns.

        Raises:
            RefusalError: If a record is not served. The records before it have run, and
                `take_replies` returns their replies.
        """
        held = self._partial + data
        whole = len(held) - len(held) % QPU_OP.itemsize
        self._partial = held[whole:]
        records = np.frombuffer(held[:whole], dtype=QPU_OP)
        served = records[: self._most_records - self.num_records]
        turn_ends = time.monotonic() + TURN_SECONDS
        for piece in self._pieces(served):
            self._serve(piece)
            if time.monotonic() >= turn_ends:
                yield
                turn_ends = time.monotonic() + TURN_SECONDS
        if len(served) < len(records):
            raise RefusalError(f"more than {self._most_records} records")

    def take_replies(self) -> bytes:
        """Return the replies made since the last call, 88 bytes each."""
        replies, self._replies = bytes(self._replies), bytearray()
        return replies

    def end(self) -> None:
        """Note that the client sends no more.

        Raises:
            RefusalError: If the client has stopped inside a record.
        """
        if self._partial:
            raise RefusalError(f"closed after {len(self._partial)} bytes of a record")

    def _pieces(self, records: RecordArray) -> Iterator[RecordArray]:
        """Split records into those of one call of the engine each."""
        opcodes = records["opcode"]
        in_jump_family = opcodes & np.uint64(0xFF) == _JUMP_FAMILY_BYTE
        runs_separately = np.isin(opcodes, _COUNTED) | in_jump_family
        start = 0
        for stop in [*np.flatnonzero(runs_separately).tolist(), len(records)]:
            while start < stop:
                size = QUICK_RECORDS if self._allowance.widest <= self._quick_qubits else 1
                yield records[start : min(start + size, stop)]
                start += size
            if stop < len(records):
                yield records[stop : stop + 1]
            start = stop + 1

    def _serve(self, piece: RecordArray) -> None:
        opcode, target_mask, cond_mask = (
            int(piece[name][0]) for name in ("opcode", "target_mask", "cond_mask")
        )
        self._allowance.admit(opcode, target_mask)
        try:
            self._sim.run(piece)
        except (RuntimeError, MemoryError) as error:
            raise RefusalError(f"a record failed: {str(error).strip()}") from None
        self.num_records += len(piece)
        if opcode == Opcode.FETCH_REQUEST:
            self._replies += reply_to(target_mask, cond_mask, self._sim).tobytes()
