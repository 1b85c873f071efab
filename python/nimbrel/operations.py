"""The operations that every filter type has: programs, read flags, events, peeks."""

from collections.abc import Iterator
from contextlib import contextmanager
from typing import Final, NamedTuple

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import call, check_flag_range, word32
from nimbrel.filter_handle import FilterHandle
from nimbrel.program_check import ProgramCheck
from nimbrel.records import RecordArray, program

FLAGS_PER_FETCH: Final = 32
"""Largest number of flags that one call of the engine returns."""


class Event(NamedTuple):
    """A failed check of a program.

    Attributes:
        name: The kind of check, such as "free_nonzero_qubits".
        message: The engine's text.
        code: The code that the record gave, 32 bits.
        ids: Ids of the events that were open, outermost first; shape (n,), dtype uint64.
    """

    name: str
    message: str
    code: int
    ids: npt.NDArray[np.uint64]


class FilterOperations(FilterHandle):
    """One filter of the engine with the operations that every filter type has.

    Every call of the engine holds the interpreter lock until it returns.
    """

    def __init__(
        self,
        filter_type: str,
        *,
        check_qubits: bool = True,
        allow_inexact_controls: bool = False,
        **params: int,
    ) -> None:
        """Create the filter.

        Args:
            filter_type: The engine's name of the filter type.
            check_qubits: As for `Simulator`.
            allow_inexact_controls: As for `Simulator`.
            **params: Fields of `SimParams`; the other fields keep their defaults.

        Raises:
            TypeError: If there is no parameter of that name, or a value is not an integer.
            ValueError: If a value does not fit 32 bits.
            RuntimeError: If the engine has no such filter type.
        """
        super().__init__(filter_type, params)
        self._check = ProgramCheck(
            filter_type, qubits=check_qubits, inexact_controls=allow_inexact_controls
        )

    @property
    def filter_type(self) -> str:
        """The engine's name of the filter type, such as "StreamQPU"."""
        return self._filter_type

    @property
    def handle(self) -> int:
        """The number by which the engine's functions name the filter.

        Reading this property ends the check of qubits. Programs that the caller runs by the
        engine's functions are not seen here, so the size of the register is unknown from now on.

        Raises:
            ValueError: If the simulator is closed.
        """
        self._check.stop_following()
        return self._require_open()

    def run(self, *parts: RecordArray) -> None:
        """Run a program in one call of the engine.

        The program is checked before its first record runs. A record is refused if it names a
        qubit outside the register. If jumps may skip a reset, several registers are possible at a
        record; then a qubit is refused if it lies outside all of them. No qubit is refused before
        the first reset. A Clifford filter also refuses a controlled Z and negated controls.

        Args:
            *parts: `QPU_OP` arrays of shape (k,), joined in this order.

        Raises:
            ValueError: If a part is not a one-dimensional `QPU_OP` array, if a record is refused
                (the text gives its index in the program), or if the simulator is closed.
            RuntimeError: The engine's error. The records before the failing one have taken
                effect.
        """
        records = program(*parts)
        handle = self._require_open()
        entry, after = self._check.begin(records)
        try:
            call(_lib_nb_sim.put_instructions, handle, records, len(records))
            self._check.ran(entry, after)
        except BaseException:
            self._check.failed(records)
            raise

    @contextmanager
    def following(self, records: RecordArray) -> Iterator[int]:
        """Check a program that the block passes to the engine itself, once or many times.

        Args:
            records: The program, contiguous, shape (n,).

        Yields:
            The number of the filter in the engine. Unlike the property `handle`, it does not end
            the check of qubits.

        Raises:
            ValueError: If a record is refused, or if the simulator is closed.
        """
        handle = self._require_open()
        entry, after = self._check.begin(records)
        try:
            yield handle
            self._check.ran(entry, after)
        except BaseException:
            self._check.failed(records)
            raise

    def flags(self, first: int, count: int) -> int:
        """Read consecutive read flags as the bits of an integer.

        Args:
            first: First flag, a signed 32-bit number; a negative number reads the flag inverted.
            count: Number of flags, 0 or more.

        Returns:
            An integer whose bit i is flag `first + i`.

        Raises:
            ValueError: If `count` is negative, if a flag number does not fit a signed 32-bit
                word, or if the simulator is closed.
            RuntimeError: The engine's error.
        """
        check_flag_range(first, count)
        handle = self._require_open()
        words = [
            call(
                _lib_nb_sim.fetch_read_result,
                handle,
                first + done,
                min(FLAGS_PER_FETCH, count - done),
            )
            for done in range(0, count, FLAGS_PER_FETCH)
        ]
        # Joined as bytes: shifting every word into place would take quadratic time.
        return int.from_bytes(np.array(words, dtype="<u4").tobytes(), "little")

    def peek_probability(self, value: int, mask: int, limit: float = 0.0) -> float:
        """The probability that a measurement of some qubits gives `value`; measures nothing.

        The masks cover qubits 0 to 31 of a register of any size. `SparseSimulator.probabilities`
        takes higher qubits. A Clifford filter takes one qubit.

        Args:
            value: The bits to look for, 32 bits, bit k for qubit k.
            mask: The qubits, 32 bits, bit k for qubit k.
            limit: Above 0, a filter may stop when its sum of probabilities reaches this limit.

        Raises:
            ValueError: If `value` or `mask` does not fit an unsigned 32-bit word, or if the
                simulator is closed.
            RuntimeError: The engine's error, for example for an empty mask.
        """
        return call(
            _lib_nb_sim.peek_read_probability,
            self._require_open(),
            word32(value, "value"),
            word32(mask, "mask"),
            limit,
        )

    def postselect(self, value: int, mask: int) -> None:
        """Project some qubits on `value`.

        The masks cover qubits 0 to 31, so a program on a larger register must place the qubits
        that it postselects below 32. A Clifford filter takes one qubit.

        Args:
            value: The bits to keep, 32 bits, bit k for qubit k.
            mask: The qubits, 32 bits, bit k for qubit k.

        Raises:
            ValueError: If `value` or `mask` does not fit an unsigned 32-bit word, or if the
                simulator is closed.
            RuntimeError: The engine's error, for example if `value` has probability 0.
        """
        call(
            _lib_nb_sim.postselect,
            self._require_open(),
            word32(value, "value"),
            word32(mask, "mask"),
        )

    def next_event(self) -> Event | None:
        """Take the oldest event off the queue. Returns None if the queue is empty.

        Raises:
            ValueError: If the simulator is closed.
        """
        event = call(_lib_nb_sim.get_next_event, self._require_open())
        return None if event is None else Event(*event)

    def events(self) -> list[Event]:
        """Take all events off the queue, oldest first.

        Raises:
            ValueError: If the simulator is closed.
        """
        return list(iter(self.next_event, None))

    def enable_qubit_debugging(self, on: bool = True) -> None:
        """Switch the checks of freed qubits on or off. A new filter has them off.

        Raises:
            ValueError: If the simulator is closed.
        """
        call(_lib_nb_sim.enable_qubit_debugging, self._require_open(), int(on))

    def finish(self) -> None:
        """Wait until the filter has done all its work.

        Raises:
            ValueError: If the simulator is closed.
        """
        call(_lib_nb_sim.finish, self._require_open())

    def _state_text(self) -> str:
        # Filters that return their state as text do not write to the array.
        unused = np.zeros(1, dtype=np.complex128)
        return call(_lib_nb_sim.pull_state, self._require_open(), unused)
