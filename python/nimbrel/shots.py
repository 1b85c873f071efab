"""`sample`: the outcomes of many runs of a program.

A program whose measurements all come last is simulated once, and its outcomes are drawn from the
state (`outcome_draws`). Any other program runs once a shot.
"""

from bisect import bisect_right
from collections.abc import Iterable, Sequence
from contextlib import ExitStack
from typing import Final, NamedTuple, TypeAlias

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import check_flag_range
from nimbrel.bounded_calls import checked, first_call, put_in_calls
from nimbrel.deferral import Deferred, NotDeferred, defer
from nimbrel.filter_choice import FilterChoice, check_local, choose_filter, with_reset
from nimbrel.flag_use import flag_use
from nimbrel.masks import WORD_BITS
from nimbrel.operations import FLAGS_PER_FETCH
from nimbrel.outcome_draws import draw_outcomes
from nimbrel.progress import ProgressBar
from nimbrel.records import Program, RecordArray
from nimbrel.samples import Samples
from nimbrel.sampling import check_shots
from nimbrel.seeding import seed as seed_engine
from nimbrel.simulator import Simulator

__all__ = ["sample"]

_Packed: TypeAlias = npt.NDArray[np.uint8]
_CLIFFORD: Final = "StreamCliffordQPU"
_BIT: Final = "StreamBitQPU"


def sample(
    program: RecordArray,
    shots: int,
    *,
    read_flags: Iterable[int] | None = None,
    filter: str | Simulator = "auto",  # noqa: A002 - the word of the documents
    seed: int | None = None,
    progress: bool = False,
) -> Samples:
    """Run a program many times and return the read flags at the end of each run.

    If all measurements come last, the program is simulated once and the outcomes are drawn from its
    state, so the time of a shot does not depend on the program. Any other program, with jumps,
    classical conditions or a gate behind a measurement of its qubit, runs once a shot. On a bit
    filter, where nothing is random, every program runs once.

    Args:
        program: The records; the first is the reset.
        shots: Number of runs, 0 or more.
        read_flags: The flags to return, signed; None means all that the program may store,
            ascending. A flag that a run has not stored reads 0.
        filter: "auto" for the choice of `choose_filter`, an engine type name such as "StreamQPU",
            or an open simulator. The state and the flags of an open simulator are unspecified
            afterwards, and its flags stay from run to run; a filter that is made here starts every
            run without flags.
        seed: Makes the outcomes repeat, 32 bits; None draws differently each time. A program that
            runs once a shot draws from the generator that all filters of the process share, and
            the seed is that of `nimbrel.seed`.
        progress: Whether a bar on standard error shows the progress.

    Returns:
        The outcomes, one row a run.

    Raises:
        ValueError: If the program does not begin with a reset, if a record is refused, if `shots`
            is negative, if no filter fits, or if there is a seed and a Clifford filter must run
            the program once a shot, because its own draws cannot be seeded.
        RuntimeError: The engine's error.
        ImportError: If a progress bar is wanted and tqdm is not installed.
    """
    check_shots(shots)
    records = with_reset(program)
    plan = defer(records)
    choice = _choice(records, filter, plan, seed)
    use = flag_use(records)
    wanted = use.stored if read_flags is None else [int(flag) for flag in read_flags]
    with ExitStack() as stack:
        is_open = isinstance(filter, Simulator)
        simulator = (
            filter if isinstance(filter, Simulator) else stack.enter_context(Simulator(choice.name))
        )
        run = _Runs(simulator, records, wanted)
        if choice.name == _BIT:
            packed = np.repeat(run.in_turn(min(shots, 1), progress=progress), shots, axis=0)
        elif isinstance(plan, Deferred):
            packed = run.drawn(plan, shots, seed, progress=progress)
        else:
            if seed is not None:
                seed_engine(seed)
            renew = not is_open and use.needs_fresh_flags(wanted)
            packed = run.in_turn(shots, progress=progress, renew=renew)
    return Samples(tuple(wanted), packed, choice.name, choice.reason)


def _choice(
    records: Program, filter_: str | Simulator, plan: Deferred | NotDeferred, seed: int | None
) -> FilterChoice:
    runs_once_a_shot = isinstance(plan, NotDeferred)
    if filter_ == "auto":
        return choose_filter(records, seedable=runs_once_a_shot and seed is not None)
    name = filter_.filter_type if isinstance(filter_, Simulator) else filter_
    check_local(name)
    if isinstance(plan, NotDeferred) and seed is not None and name == _CLIFFORD:
        raise ValueError(
            f"record {plan.record} {plan.reason}, so the program runs once a shot; a Clifford "
            "filter cannot do this with a seed"
        )
    return FilterChoice(name, "the caller named it")


class _Window(NamedTuple):
    """Consecutive flags that one call of the engine returns."""

    first: int
    length: int


class _Runs:
    """The runs of one program on one filter."""

    def __init__(self, simulator: Simulator, records: Program, wanted: Sequence[int]) -> None:
        self._simulator = simulator
        self._records = records
        self._wanted = wanted
        self._first_call = first_call(simulator.filter_type, records)

    def drawn(self, plan: Deferred, shots: int, seed: int | None, *, progress: bool) -> _Packed:
        """Simulate the program once and draw the outcomes."""
        sources = [plan.flags.read(flag) for flag in self._wanted]
        gates = self._printable(plan.gates)
        with ProgressBar(len(gates), "record", shown=progress) as bar:
            with checked(self._simulator, self._records) as handle:
                put_in_calls(handle, gates, self._first_call, bar)
            return draw_outcomes(self._simulator, sources, shots, np.random.default_rng(seed))

    def _printable(self, gates: Program) -> Program:
        # The text of a tableau is complete if the register fills its 64-qubit words.
        size = int(gates["target_mask"][0])
        if self._simulator.filter_type != _CLIFFORD or size <= WORD_BITS:
            return gates
        padded: Program = gates.copy()
        padded["target_mask"][0] = -(-size // WORD_BITS) * WORD_BITS
        return padded

    def in_turn(self, shots: int, *, progress: bool, renew: bool = False) -> _Packed:
        """Run the program once a shot.

        Args:
            shots: Number of runs.
            progress: Whether a bar shows the progress.
            renew: Whether each run needs a filter without stored flags.
        """
        fetched: list[int] = []
        windows = _windows(self._wanted)
        with (
            ProgressBar(shots, "shot", shown=progress) as bar,
            checked(self._simulator, self._records) as handle,
        ):
            for _ in range(shots):
                if renew:
                    self._on_new_filter(windows, fetched)
                else:
                    self._once(handle, windows, fetched)
                bar.update(1)
        return _packed(fetched, windows, self._wanted, shots)

    def _once(self, handle: int, windows: Sequence[_Window], fetched: list[int]) -> None:
        records = self._records
        if len(records) <= self._first_call:
            _lib_nb_sim.put_instructions(handle, records, len(records))
        else:
            put_in_calls(handle, records, self._first_call)
        for first, length in windows:
            fetched.append(_lib_nb_sim.fetch_read_result(handle, first, length))

    def _on_new_filter(self, windows: Sequence[_Window], fetched: list[int]) -> None:
        handle = _lib_nb_sim.new_native_filter(self._simulator.filter_type)
        try:
            self._once(handle, windows, fetched)
        finally:
            _lib_nb_sim.delete_native_filter(handle)


def _windows(flags: Sequence[int]) -> list[_Window]:
    """Cover the flags by as few calls of the engine as their order allows."""
    windows: list[_Window] = []
    for flag in sorted(set(flags)):
        check_flag_range(flag, 1)
        if windows and flag < windows[-1].first + FLAGS_PER_FETCH:
            windows[-1] = windows[-1]._replace(length=flag - windows[-1].first + 1)
        else:
            windows.append(_Window(flag, 1))
    return windows


def _packed(
    fetched: Sequence[int], windows: Sequence[_Window], flags: Sequence[int], shots: int
) -> _Packed:
    """Arrange the words of all runs as rows of the wanted flags."""
    words = np.array(fetched, dtype=np.uint32).reshape(shots, len(windows))
    columns = np.empty((shots, len(flags)), dtype=np.uint8)
    firsts = [window.first for window in windows]
    for column, flag in enumerate(flags):
        place = bisect_right(firsts, flag) - 1
        columns[:, column] = words[:, place] >> np.uint32(flag - windows[place].first) & 1
    return np.packbits(columns, axis=1, bitorder="little")
