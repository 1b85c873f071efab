"""A model of the socket filter's wait, written independently of the engine."""

from __future__ import annotations

import math
import struct
from collections.abc import Iterable

from models import opcodes
from models.flags import FlagTable
from models.wire import RECORD_BYTES, TAG, signed

FETCH_REPLY = TAG << 32 | opcodes.FETCH_REPLY


class ClientModel:
    """A client with its flags. Each wait starts with an empty buffer."""

    def __init__(self) -> None:
        self.flags = FlagTable()

    def wait(self, polls: Iterable[bytes], requests: int, timeout: float = math.inf) -> int | None:
        """Walks over the buffer after each poll. The timeout is measured in polls.

        A walk restarts the timeout if it counted a reply or found new bytes.

        Returns how many polls it took to count enough replies, None if the polls or the time
        ended before.
        """
        received = b""
        replies = 0
        noted = 1
        for number, data in enumerate(polls, start=1):
            if number - noted >= timeout:
                return None
            received += data
            counted = self._walk(received)
            replies += counted
            if replies >= requests:
                return number
            if counted or (data and len(received) >= RECORD_BYTES):
                noted = number
        return None

    def _walk(self, received: bytes) -> int:
        """Examines the first record once for each whole record in the buffer."""
        replies = 0
        for _ in range(len(received) // RECORD_BYTES):
            (opcode,) = struct.unpack_from("<Q", received)
            if opcode == FETCH_REPLY:
                self._store(received)
                replies += 1
        return replies

    def _store(self, record: bytes) -> None:
        first, count, valid, value = struct.unpack_from("<qQ8xQQ", record, 8)
        for i in range(min(count, 64)):
            if valid >> i & 1:
                self.flags.set(signed(first + i), value >> i & 1)
