"""One filter of the engine as a context manager."""

from typing import Final, NamedTuple

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import _call, _flag_range, _word32
from nimbrel.clifford import Tableau, parse_tableau
from nimbrel.program_check import ProgramCheck
from nimbrel.records import RecordArray, program
from nimbrel.remote import FLAGS_PER_REQUEST, RemoteOperations, fetch_request
from nimbrel.state import StateOperations

FLAGS_PER_FETCH: Final = 32
"""Flags that one call of the engine returns at most."""

_CLIFFORD: Final = "StreamCliffordQPU"


class Event(NamedTuple):
    """A failed assertion: its name, message and code, and the ids of the open events."""

    name: str
    message: str
    code: int
    ids: npt.NDArray[np.uint64]


class Simulator(StateOperations, RemoteOperations):
    """One filter of the engine, freed on leaving the `with` block.

    The engine holds the interpreter lock during every call. Terms, amplitudes, probabilities
    and samples are the methods of `StateOperations`; those of `RemoteOperations` connect a
    "StreamConnect" filter to a service, where its programs run.

        with Simulator("StreamBitQPU") as sim:
            sim.run(reset(100), x([3, 70]), read(range(100), 2))
            value = sim.flags(2, 100)

    Every method raises `ValueError` after `close`, and `RuntimeError` with the engine's
    own text when the engine reports a failure.
    """

    def __init__(
        self,
        filter_type: str = "StreamBitQPU",
        *,
        check_qubits: bool = True,
        allow_inexact_controls: bool = False,
        **params: int,
    ) -> None:
        """Create the filter.

        Args:
            filter_type: The engine's name of the filter.
            check_qubits: Whether `run` refuses qubits outside the register. Without it a dense
                or a sparse filter drops them in silence. It costs some nanoseconds a record, and
                a "StreamConnect" filter checks none.
            allow_inexact_controls: Whether `run` lets controlled Z and negated controls pass to a
                Clifford filter, which leaves out the sign of the first and takes the second for
                plain controls.
            **params: Fields of `SimParams`; those not given keep their defaults.

        Raises:
            TypeError: If a parameter has no such name or is not an integer.
            ValueError: If a parameter does not fit 32 bits.
            RuntimeError: If the engine knows no such filter.
        """
        super().__init__(filter_type, **params)
        self._check = ProgramCheck(
            filter_type, qubits=check_qubits, inexact_controls=allow_inexact_controls
        )

    @property
    def handle(self) -> int:
        """The number by which the engine's functions name the filter.

        Reading it ends the check of qubits: the programs that the engine's functions run are not
        seen, so the register is not known any more.

        Raises:
            ValueError: If the simulator is closed.
        """
        self._check.stop_following()
        return self._open_handle()

    def run(self, *parts: RecordArray) -> None:
        """Run a program in one call of the engine.

        A "StreamConnect" filter only sends it, in one call for each fetch request in it and
        for each window of records (see `connect`), which waits for a reply. Without a fetch
        request at the end nothing tells whether the service has run it, or is still there.

        Any other filter's program is checked before its first record runs. A qubit is refused
        that lies outside the register, or outside every register which the program may have at
        that record when jumps may skip a reset. Before the first reset no qubit is refused. On a
        Clifford filter a controlled Z and a negated control are refused too.

        Args:
            *parts: `QPU_OP` arrays of shape (k,), joined in this order.

        Raises:
            ValueError: If a part is not a one-dimensional `QPU_OP` array, or the
                simulator is closed; if a record is refused, with its index in the program; or
                if a program that is sent ends with an extension record or has an operation that
                is longer than the window.
            RuntimeError: What the engine reports; records before the failing one have
                taken effect.
            TimeoutError: If the service does not reply in time, also when it has gone. The
                connection is closed then, since a late reply would answer the next request. A
                reply in the wait's last moment counts as late, but its flags have been stored.
            ConnectionError: If the connection was lost during a wait.
        """
        records = program(*parts)
        handle = self._open_handle()
        if self._link is not None:
            self._link.send(records)
            return
        trace = self._check.check(records)
        try:
            _call(_lib_nb_sim.put_instructions, handle, records, len(records))
        except BaseException:
            self._check.failed(records)
            raise
        self._check.ran(trace)

    def fetch(self, first: int, count: int, *parts: RecordArray) -> int:
        """Run a program at the service of a "StreamConnect" filter and fetch read flags.

        They come by one request for every 64 flags, with the program's last records in the
        same array as the first of them. Each takes a multiple of 10 milliseconds.

        Args:
            first: First flag, a signed 32-bit number; negative flags read inverted.
            count: Number of flags. With 0 no flag is fetched, but the service has run the
                program.
            *parts: The program, as for `run`.

        Returns:
            An integer whose bit i is flag `first + i`, which `flags` gives from now on too. A
            flag that the service marks as not present keeps what it had: with
            `examples/service.py` one that was never stored there, which reads 0 as it would
            in a local run, unless it has been fetched over an earlier connection.

        Raises:
            ValueError: As `run` and `flags`, and on a filter of another type.
            RuntimeError: If there is no connection.
            TimeoutError: As `run`. Flags of the requests before have been stored.
            ConnectionError: As `run`.
        """
        self._remote()
        _flag_range(first, count)
        starts = range(0, max(count, 1), FLAGS_PER_REQUEST)
        requests = [
            fetch_request(first + done, min(FLAGS_PER_REQUEST, count - done)) for done in starts
        ]
        self.run(*parts, *requests)
        return self.flags(first, count)

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
        _flag_range(first, count)
        handle = self._open_handle()
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
        return _state_text(self._open_handle())

    def generators(self) -> list[str]:
        """The generators of a Clifford filter's state, which is the +1 state of each of them.

        Returns:
            A string for each generator, in the tableau's order: a sign, "+" or "-", and a letter
            for each qubit, qubit 0 first, with "_" where the product leaves a qubit alone. So
            "+XZ_Y" is X on qubit 0, Z on qubit 1 and Y on qubit 3. The engine's text, of which
            they are made, leaves out the qubits n % 64 to 63 of a register of n qubits, when n
            is above 64 and no multiple of 64: those are shown as "?". Size the register to a
            multiple of 64 to see all.

        Raises:
            ValueError: If the filter is of another type, or the simulator is closed.
            RuntimeError: What the engine reports, such as a register not yet sized.
        """
        return self._tableau().generators

    def destabilizers(self) -> list[str]:
        """The partners of a Clifford filter's generators.

        Returns:
            Strings as those of `generators`. Number i anticommutes with generator i and commutes
            with the others. Its sign carries no meaning for the state, and may be "+i" or "-i".

        Raises:
            ValueError: If the filter is of another type, or the simulator is closed.
            RuntimeError: What the engine reports, such as a register not yet sized.
        """
        return self._tableau().destabilizers

    def peek_probability(self, value: int, mask: int, limit: float = 0.0) -> float:
        """The probability to read `value` on the qubits of `mask`, without measuring.

        Masks reach qubits 0 to 31 of any register; `probabilities` reaches the others of a
        sparse one. A Clifford filter takes one qubit.

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
            self._open_handle(),
            _word32(value, "value"),
            _word32(mask, "mask"),
            limit,
        )

    def postselect(self, value: int, mask: int) -> None:
        """Project the qubits of `mask` on `value`.

        Masks reach qubits 0 to 31, so a program on a larger register keeps low what it
        selects by. A Clifford filter takes one qubit.

        Args:
            value: The bits to keep, 32 bits, bit k for qubit k.
            mask: The qubits, 32 bits, bit k for qubit k.

        Raises:
            ValueError: If `value` or `mask` does not fit an unsigned 32-bit word, or the
                simulator is closed.
            RuntimeError: What the engine reports, such as a value of probability 0.
        """
        _call(
            _lib_nb_sim.postselect,
            self._open_handle(),
            _word32(value, "value"),
            _word32(mask, "mask"),
        )

    def next_event(self) -> Event | None:
        """Take the oldest event off the queue; None when the queue is empty.

        Raises:
            ValueError: If the simulator is closed.
        """
        event = _call(_lib_nb_sim.get_next_event, self._open_handle())
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
        _call(_lib_nb_sim.enable_qubit_debugging, self._open_handle(), int(on))

    def finish(self) -> None:
        """Wait until the filter has done all its work.

        Raises:
            ValueError: If the simulator is closed.
        """
        _call(_lib_nb_sim.finish, self._open_handle())

    def _register_made(self, num_qubits: int) -> None:
        self._check.resize(num_qubits)

    def _tableau(self) -> Tableau:
        handle = self._open_handle()
        if self._filter_type != _CLIFFORD:
            raise ValueError(f'a "{self._filter_type}" filter has no generators')
        return parse_tableau(_state_text(handle))


def _state_text(handle: int) -> str:
    # Filters that answer by text leave the array untouched.
    unused = np.zeros(1, dtype=np.complex128)
    return _call(_lib_nb_sim.pull_state, handle, unused)
