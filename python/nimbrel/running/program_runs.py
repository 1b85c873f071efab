"""Runs one program on one filter: once for all shots, or once a shot."""

from bisect import bisect_right
from collections.abc import Sequence
from dataclasses import astuple
from typing import Final, NamedTuple, TypeAlias

import _lib_nb_sim
import numpy as np
import numpy.typing as npt

from nimbrel._engine import check_flag_range
from nimbrel.filter_handle import SimParams
from nimbrel.masks import WORD_BITS
from nimbrel.opcodes import Opcode
from nimbrel.operations import FLAGS_PER_FETCH
from nimbrel.records import Program
from nimbrel.running.bounded_calls import checked, first_call, put_in_calls
from nimbrel.running.deferral import Deferred
from nimbrel.running.outcome_draws import draw_outcomes
from nimbrel.running.progress import ProgressBar
from nimbrel.simulator import Simulator

__all__ = ["ENGINE_SEEDS", "Packed", "ProgramRuns"]

Packed: TypeAlias = npt.NDArray[np.uint8]
"""Outcomes as `Samples.packed`."""

ENGINE_SEEDS: Final = 2**32
"""The number of different seeds of the engine's generator."""

_CLIFFORD: Final = "StreamCliffordQPU"
_WITHOUT_EXTENSIONS: Final = ("StreamQPU", "StreamSparseQPU")


class _Window(NamedTuple):
    """Consecutive flags that one call of the engine returns."""

    first: int
    length: int


class ProgramRuns:
    """The runs of one program on one filter."""

    def __init__(
        self,
        simulator: Simulator,
        records: Program,
        wanted: Sequence[int],
        *,
        max_num_threads: int = 0,
    ) -> None:
        """Prepare the runs.

        Args:
            simulator: The filter.
            records: The program.
            wanted: The read flags to return.
            max_num_threads: The parameter of that name for filters that are made for one run.
        """
        self._simulator = simulator
        self._records = records
        self._wanted = wanted
        self._params = SimParams(max_num_threads=max_num_threads)
        self._first_call = first_call(simulator.filter_type, records)

    def drawn(self, plan: Deferred, shots: int, seed: int | None, *, progress: bool) -> Packed:
        """Simulate the program once and draw the outcomes."""
        sources = [plan.flags.read(flag) for flag in self._wanted]
        gates = self._records if self._refuses_extensions() else self._printable(plan.gates)
        with ProgressBar(len(gates), "record", shown=progress) as bar:
            with checked(self._simulator, self._records) as handle:
                put_in_calls(handle, gates, self._first_call, bar)
            return draw_outcomes(self._simulator, sources, shots, np.random.default_rng(seed))

    def _refuses_extensions(self) -> bool:
        # The extensions of measurements are not among the gates, but must raise their error.
        extended = self._simulator.filter_type in _WITHOUT_EXTENSIONS
        return extended and bool((self._records["opcode"] == Opcode.EXTEND).any())

    def _printable(self, gates: Program) -> Program:
        # The text of a tableau is complete if the register fills its 64-qubit words.
        size = int(gates["target_mask"][0])
        if self._simulator.filter_type != _CLIFFORD or size <= WORD_BITS:
            return gates
        padded: Program = gates.copy()
        padded["target_mask"][0] = -(-size // WORD_BITS) * WORD_BITS
        return padded

    def in_turn(
        self, shots: int, *, progress: bool = False, renew: bool = False, seed: int | None = None
    ) -> Packed:
        """Run the program once a shot.

        Args:
            shots: Number of runs.
            progress: Whether a bar shows the progress.
            renew: Whether each run needs a filter without stored flags.
            seed: Seeds the first run; the number increases by one from run to run.
        """
        fetched: list[int] = []
        windows = _windows(self._wanted)
        with (
            ProgressBar(shots, "shot", shown=progress) as bar,
            checked(self._simulator, self._records) as handle,
        ):
            for number in range(shots):
                if seed is not None:
                    _lib_nb_sim.random_seed(0, (seed + number) % ENGINE_SEEDS)
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
            _lib_nb_sim.setup_sim_params(handle, *astuple(self._params))
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
) -> Packed:
    """Arrange the words of all runs as rows of the wanted flags."""
    words = np.array(fetched, dtype=np.uint32).reshape(shots, len(windows))
    columns = np.empty((shots, len(flags)), dtype=np.uint8)
    firsts = [window.first for window in windows]
    for column, flag in enumerate(flags):
        place = bisect_right(firsts, flag) - 1
        columns[:, column] = words[:, place] >> np.uint32(flag - windows[place].first) & 1
    return np.packbits(columns, axis=1, bitorder="little")
