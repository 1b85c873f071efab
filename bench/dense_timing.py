"""Timing of one cell of the dense benchmark: one task on one width, all simulators in turn."""

import time
from collections.abc import Sequence
from dataclasses import dataclass

from dense_simulator import Simulator, Timer
from dense_tasks import Task

HOPELESS = 2.0  # times the fastest: such a simulator gets no second long run
LONG_RUN = 0.2  # seconds
LEAST_SECONDS = 1e-7
MOST_GROWTH = 20  # of the repetitions from one run to the next
MOST_WARM_UPS = 8
SETTLE_SECONDS = 0.005  # before a run, so that idle threads of the one before stop spinning


@dataclass(frozen=True)
class Effort:
    """How long a cell may take.

    Attributes:
        run_seconds: Aimed at for one timed run, by repeating the gates.
        rounds: Most rounds; in each, every simulator has one run.
        cell_seconds: After this no further round is begun. One is made in any case, beside the
            run that finds out how often the gates are repeated.
    """

    run_seconds: float
    rounds: int
    cell_seconds: float


# Short runs and many of them: one that nothing else on the machine disturbs is soon among them.
FULL = Effort(run_seconds=0.004, rounds=12, cell_seconds=1.0)
QUICK = Effort(run_seconds=0.003, rounds=5, cell_seconds=0.3)


class BestTime:
    """The least time of one run through a list of gates, over all runs so far."""

    def __init__(self, timer: Timer, most_repetitions: int | None, run_seconds: float) -> None:
        self._timer = timer
        self._limit = most_repetitions or 1_000_000
        self._run_seconds = run_seconds
        self._repetitions = 1
        self.best = float("inf")
        self.last_run = 0.0
        self._warm_up()

    def run(self) -> None:
        """Make one timed run, and tell from it how often the next one repeats the gates."""
        time.sleep(SETTLE_SECONDS)
        # A time net of something else may come out as nothing or less.
        self.last_run = max(self._timer(self._repetitions), LEAST_SECONDS)
        each = self.last_run / self._repetitions
        if self.last_run >= self._run_seconds / 4 or self._repetitions == self._limit:
            self.best = min(self.best, each)
        wanted = round(self._run_seconds / min(self.best, each))
        self._repetitions = max(1, min(wanted, MOST_GROWTH * self._repetitions, self._limit))

    def _warm_up(self) -> None:
        # The first run may be many times too slow, and one too short tells little.
        for _ in range(MOST_WARM_UPS):
            self.run()
            if self.best < float("inf"):
                return


class Contender:
    """One simulator in one cell."""

    def __init__(
        self, simulator: Simulator, task: Task, num_qubits: int, run_seconds: float
    ) -> None:
        self.name = simulator.name
        gates = task.gates(num_qubits)
        self._figure_gates = task.figure_gates(num_qubits)
        lists = [gates] if task.overhead is None else [gates, task.overhead(num_qubits)]
        limit = simulator.max_gates and max(1, simulator.max_gates // len(gates))
        self._times = [BestTime(simulator.timer(part), limit, run_seconds) for part in lists]

    def run(self) -> None:
        """Make one timed run of the gates, and one of what is taken off."""
        for best_time in self._times:
            best_time.run()

    @property
    def round_seconds(self) -> float:
        """How long the last round took."""
        return sum(best_time.last_run for best_time in self._times)

    @property
    def measured(self) -> bool:
        """Whether there is a time to report."""
        return 0 < self.nanoseconds < float("inf")

    @property
    def nanoseconds(self) -> float:
        """Time of one gate; 0 or less when noise has swallowed a difference."""
        gross, *taken_off = (best_time.best for best_time in self._times)
        return (gross - sum(taken_off)) / self._figure_gates * 1e9


def promising(contenders: Sequence[Contender]) -> list[Contender]:
    """Those worth a further run: the quick ones, and those near the fastest."""
    fastest = min((each.nanoseconds for each in contenders if each.measured), default=0.0)
    return [
        contender
        for contender in contenders
        if contender.round_seconds < LONG_RUN or contender.nanoseconds <= HOPELESS * fastest
    ]


def time_cell(
    simulators: Sequence[Simulator], task: Task, num_qubits: int, effort: Effort
) -> dict[str, float]:
    """Time one task on every simulator, interleaved.

    Args:
        simulators: Registers of `num_qubits` qubits in any state of norm 1.
        task: What to run.
        num_qubits: Width.
        effort: How long to try.

    Returns:
        Name of the simulator -> nanoseconds of one gate, the best of all rounds. One whose
        time was lost in the noise of what is taken off is left out.
    """
    begin = time.perf_counter()
    contenders = [
        Contender(simulator, task, num_qubits, effort.run_seconds) for simulator in simulators
    ]
    for round_number in range(effort.rounds):
        if round_number >= 1 and time.perf_counter() - begin > effort.cell_seconds:
            break
        for contender in promising(contenders):
            contender.run()
    return {contender.name: contender.nanoseconds for contender in contenders if contender.measured}
