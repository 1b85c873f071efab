"""The socket filter's wait in plain Python, written out on its own as a truth for the engine's."""

from __future__ import annotations

import math
import struct
from collections.abc import Iterable

from models import opcodes
from models.flags import FlagTable
from models.wire import RECORD_BYTES, TAG, signed

FETCH_REPLY = TAG << 32 | opcodes.FETCH_REPLY


class ClientModel:
    """A client with its flags; each wait begins with an empty buffer."""

    def __init__(self) -> None:
        self.flags = FlagTable()

    def wait(self, polls: Iterable[bytes], requests: int, timeout: float = math.inf) -> int | None:
        """Walks after each poll, whatever it brought. The timeout is measured in polls.

        A walk restarts the timeout if it counted a reply or had new bytes to look at.

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
        """Looks at the first record as often as there are whole ones."""
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
