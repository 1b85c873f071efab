"""One filter of the engine as a context manager."""

from typing import Final, NamedTuple

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import _call, _word32
from nimbrel.records import RecordArray, program
from nimbrel.state import StateOperations

FLAGS_PER_FETCH: Final = 32
"""Flags that one call of the engine returns at most."""


class Event(NamedTuple):
    """A failed assertion: its name, message and code, and the ids of the open events."""

    name: str
    message: str
    code: int
    ids: npt.NDArray[np.uint64]


def seed(value: int) -> None:
    """Seed the generator that all filters of the process share.

    Args:
        value: The seed, 32 bits.

    Raises:
        ValueError: If `value` does not fit an unsigned 32-bit word.
    """
    _call(_lib_nb_sim.random_seed, 0, _word32(value, "seed"))


class Simulator(StateOperations):
    """One filter of the engine, freed on leaving the `with` block.

    The engine holds the interpreter lock during every call. Terms, amplitudes, probabilities
    and samples are the methods of `StateOperations`.

        with Simulator("StreamBitQPU") as sim:
            sim.run(reset(100), x([3, 70]), read(range(100), 2))
            value = sim.flags(2, 100)

    Every method raises `ValueError` after `close`, and `RuntimeError` with the engine's
    own text when the engine reports a failure.
    """

    def run(self, *parts: RecordArray) -> None:
        """Run a program in one call of the engine.

        Args:
            *parts: `QPU_OP` arrays of shape (k,), joined in this order.

        Raises:
            ValueError: If a part is not a one-dimensional `QPU_OP` array, or the
                simulator is closed.
            RuntimeError: What the engine reports; records before the failing one have
                taken effect.
        """
        records = program(*parts)
        _call(_lib_nb_sim.put_instructions, self.handle, records, len(records))

    def flags(self, first: int, count: int) -> int:
        """Fetch consecutive read flags as the bits of an integer.

        Args:
            first: First flag, a signed 32-bit number; negative flags read inverted.
            count: Number of flags, 0 or more.

        Returns:
            An integer whose bit i is flag `first + i`.

        Raises:
            ValueError: If `count` is negative, a flag's number does not fit a signed
                32-bit word, or the simulator is closed.
            RuntimeError: What the engine reports.
        """
        if count < 0 or first < -(2**31) or first + count > 2**31:
            raise ValueError(f"flags {first} to {first + count - 1} cannot be fetched")
        handle = self.handle
        words = [
            _call(
                _lib_nb_sim.fetch_read_result,
                handle,
                first + done,
                min(FLAGS_PER_FETCH, count - done),
            )
            for done in range(0, count, FLAGS_PER_FETCH)
        ]
        # Joined as bytes: shifting every word into place would take quadratic time.
        return int.from_bytes(np.array(words, dtype="<u4").tobytes(), "little")

    def bits(self) -> str:
        """The state of a bit filter.

        Returns:
            One character "0" or "1" for each qubit, qubit 0 first.

        Raises:
            ValueError: If the simulator is closed.
            RuntimeError: What the engine reports, such as a register not yet sized.
        """
        # The bit filter answers by text alone and leaves the array untouched.
        unused = np.zeros(1, dtype=np.complex128)
        return _call(_lib_nb_sim.pull_state, self.handle, unused)

    def peek_probability(self, value: int, mask: int, limit: float = 0.0) -> float:
        """The probability to read `value` on the qubits of `mask`, without measuring.

        Masks reach qubits 0 to 31 of any register; `probabilities` reaches the others of a
        sparse one.

        Args:
            value: The bits to look for, 32 bits, bit k for qubit k.
            mask: The qubits, 32 bits, bit k for qubit k.
            limit: Passed on to the filter.

        Raises:
            ValueError: If `value` or `mask` does not fit an unsigned 32-bit word, or the
                simulator is closed.
            RuntimeError: What the engine reports, such as an empty mask.
        """
        return _call(
            _lib_nb_sim.peek_read_probability,
            self.handle,
            _word32(value, "value"),
            _word32(mask, "mask"),
            limit,
        )

    def postselect(self, value: int, mask: int) -> None:
        """Project the qubits of `mask` on `value`.

        Masks reach qubits 0 to 31, so a program on a larger register keeps low what it
        selects by.

        Args:
            value: The bits to keep, 32 bits, bit k for qubit k.
            mask: The qubits, 32 bits, bit k for qubit k.

        Raises:
            ValueError: If `value` or `mask` does not fit an unsigned 32-bit word, or the
                simulator is closed.
            RuntimeError: What the engine reports, such as a value of probability 0.
        """
        _call(_lib_nb_sim.postselect, self.handle, _word32(value, "value"), _word32(mask, "mask"))

    def next_event(self) -> Event | None:
        """Take the oldest event off the queue; None when the queue is empty.

        Raises:
            ValueError: If the simulator is closed.
        """
        event = _call(_lib_nb_sim.get_next_event, self.handle)
        return None if event is None else Event(*event)

    def events(self) -> list[Event]:
        """Take all events off the queue, oldest first.

        Raises:
            ValueError: If the simulator is closed.
        """
        return list(iter(self.next_event, None))

    def enable_qubit_debugging(self, on: bool = True) -> None:
        """Switch the checks of freed qubits on or off; they are off at first.

        Raises:
            ValueError: If the simulator is closed.
        """
        _call(_lib_nb_sim.enable_qubit_debugging, self.handle, int(on))

    def finish(self) -> None:
        """Wait until the filter has done all its work.

        Raises:
            ValueError: If the simulator is closed.
        """
        _call(_lib_nb_sim.finish, self.handle)
