"""What service.py does for one client: its records, the limits on them, and the replies.

Nothing here knows of connections. A call of the engine cannot be interrupted, so where a record
may take long each is run in a call of its own, and the others wait for one record at most.
"""

import time
from collections.abc import Iterator
from dataclasses import dataclass
from typing import Final

import numpy as np
from nimbrel import QPU_OP, Opcode, RecordArray, Simulator, record

FLAGS_PER_REPLY: Final = 64
FLAG_NUMBERS: Final = range(-(2**31), 2**31)
MAX_EXTENSIONS: Final = 4096  # waiting for one operation
MAX_OPEN_EVENTS: Final = 65536  # in all, also when they have been closed
TURN_SECONDS: Final = 0.05  # of one client, before the others have theirs
QUICK_RECORDS: Final = 64  # in one call of the engine

# Registers on which no record takes longer than half a millisecond, however many qubits it names.
# A bit filter looks at the words that a record names, whatever the register.
QUICK_QUBITS: Final = {
    "StreamQPU": 10,
    "StreamSparseQPU": 10,
    "StreamBitQPU": 2**64 - 1,
    "StreamCliffordQPU": 64,
}

_STEERING: Final = 0x16  # low byte of the opcodes that steer a program and are never operations
_OPEN_EVENTS: Final = (Opcode.OPEN_EVENT, Opcode.OPEN_EVENT_2)
_ALONE: Final = np.array(
    [Opcode.RESET, Opcode.EXTEND, Opcode.FETCH_REQUEST, *_OPEN_EVENTS], dtype=np.uint64
)


class RefusalError(Exception):
    """A client has sent what is not served; the text tells what."""


@dataclass(frozen=True)
class Limits:
    """What one client may have, and how many clients there may be.

    Attributes:
        clients: Clients at a time.
        qubits: Largest register of a client.
        records: Most records of a client.
        idle_seconds: Longest wait for a client that sends nothing or reads no replies.
    """

    clients: int
    qubits: int
    records: int
    idle_seconds: float


class Allowance:
    """What one client has used of its limits but for the number of records."""

    def __init__(self, limits: Limits) -> None:
        """Nothing yet."""
        self._limits = limits
        self.widest = 0  # a reset may be skipped, so a narrow one tells nothing
        self._events = 0
        self._extensions = 0
        self._before_jumps = 0

    def admit(self, opcode: int, target_mask: int) -> None:
        """Count a record that is about to run.

        Raises:
            RefusalError: If it is one too many or sizes too wide a register.
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
        """Keep the most that can be waiting for an operation in the engine.

        They wait for the next record that is an operation and is not skipped. What a jump skips
        depends on flags, so those that wait at a jump may do so for ever, and count as if.
        """
        if opcode == Opcode.EXTEND:
            self._extensions += 1
            if self._before_jumps + self._extensions > MAX_EXTENSIONS:
                raise RefusalError(f"more than {MAX_EXTENSIONS} extensions of one operation")
        elif opcode == Opcode.JUMP_FWD:
            self._before_jumps += self._extensions
            self._extensions = 0
        elif opcode & 0xFF != _STEERING:
            self._extensions = 0


class Session:
    """One client's filter, and the bytes of a record that has not come whole yet."""

    def __init__(self, sim: Simulator, limits: Limits, quick_qubits: int = 0) -> None:
        """Serve records on `sim`, which stays the caller's.

        Args:
            sim: The filter.
            limits: What the client may have.
            quick_qubits: Width of a register on which records run many at a time.
        """
        self._sim = sim
        self._most_records = limits.records
        self._allowance = Allowance(limits)
        self._quick_qubits = quick_qubits
        self._partial = b""
        self._replies = bytearray()
        self.num_records = 0

    def feed(self, data: bytes) -> Iterator[None]:
        """Run the records that are whole now, in turns.

        Yields:
            Whenever a turn is over, so that others can have theirs.

        Raises:
            RefusalError: If a record is not served. Those before it have run, and their replies
                wait.
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
        """The replies made since the last call."""
        replies, self._replies = bytes(self._replies), bytearray()
        return replies

    def end(self) -> None:
        """The client sends no more.

        Raises:
            RefusalError: If it has stopped inside a record.
        """
        if self._partial:
            raise RefusalError(f"closed after {len(self._partial)} bytes of a record")

    def _pieces(self, records: RecordArray) -> Iterator[RecordArray]:
        """The records for one call of the engine each; what is counted stands alone."""
        opcodes = records["opcode"]
        is_alone = np.isin(opcodes, _ALONE) | (opcodes & np.uint64(0xFF) == _STEERING)
        start = 0
        for stop in [*np.flatnonzero(is_alone).tolist(), len(records)]:
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


def reply_to(first_word: int, asked: int, sim: Simulator) -> RecordArray:
    """The reply to a fetch request with these words, one record."""
    first = signed(first_word)
    count = min(asked, FLAGS_PER_REPLY)
    values = stored = 0
    if count > 0 and first in FLAG_NUMBERS and first + count - 1 in FLAG_NUMBERS:
        values = sim.flags(first, count)
        stored = values | opposite_flags(first, count, sim)
    return record(
        Opcode.FETCH_REPLY,
        target_mask=first_word,
        cond_mask=count,
        cond_flag=signed(stored),
        read_flag=signed(values),
    )


def opposite_flags(first: int, count: int, sim: Simulator) -> int:
    """The flags of the negated numbers, bit i for flag `-(first + i)`; `count` is 1 or more.

    A flag that has been stored reads 1 by its number or by the negated one, and a flag that has
    not reads 0 by both. So a bit that is 0 here and in the value belongs to a flag that the
    client must not store: it would read 1 there by the other number.
    """
    has_number_without_opposite = first == FLAG_NUMBERS.start
    known = count - has_number_without_opposite
    text = format(sim.flags(1 - first - count, known), f"0{count}b")
    return int(text[::-1], 2) | has_number_without_opposite  # taken for stored


def signed(word: int) -> int:
    """The signed number in an unsigned 64-bit word."""
    return word - (1 << 64) if word >> 63 else word
