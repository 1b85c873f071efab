"""`sample`: the outcomes of many runs of a program.

A program whose measurements all come last is simulated once, and its outcomes are drawn from the
state (`outcome_draws`). Any other program runs once a shot, on the workers of an executor if there
is one.
"""

from collections.abc import Iterable

from nimbrel._engine import word32
from nimbrel.records import RecordArray
from nimbrel.running.distributed_shots import distributed_shots
from nimbrel.running.executor_source import AnyExecutor, check_executor, refuse_open_simulator
from nimbrel.running.program_runs import Packed
from nimbrel.running.samples import Samples
from nimbrel.running.shot_plan import ShotPlan, shot_plan
from nimbrel.sampling import check_shots
from nimbrel.seeding import seed as seed_engine
from nimbrel.simulator import Simulator

__all__ = ["sample"]


def sample(
    program: RecordArray,
    shots: int,
    *,
    read_flags: Iterable[int] | None = None,
    filter: str | Simulator = "auto",  # noqa: A002 - the word of the documents
    seed: int | None = None,
    executor: AnyExecutor | None = None,
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
            afterwards, and its flags stay from run to run, so a program that may see older flags
            runs once a shot; a filter that is made here starts every run without flags.
        seed: Makes the outcomes repeat, 32 bits; None draws differently each time. A program that
            runs once a shot draws from the generator that all filters of the process share, and
            shot number k, from 0, is seeded as by `nimbrel.seed((seed + k) % 2**32)`. So the
            outcomes are the same with every executor and without one. Seeds of runs that must be
            independent differ by at least the number of shots.
        executor: Runs the shots of a program that runs once a shot: anything with the interface of
            `concurrent.futures.Executor`, or a function without arguments that makes one. An
            executor is left open. One that the function has made is shut down at the end, and
            replaced if it loses a worker. Each filter of a worker has `max_num_threads=1`. Any
            other program runs in this process, because one simulation serves all shots.
        progress: Whether a bar on standard error shows the progress.

    Returns:
        The outcomes, one row a run.

    Raises:
        ValueError: If the program does not begin with a reset, if a record is refused, if `shots`
            is negative, if no filter fits, or if there is a seed and a Clifford filter must run
            the program once a shot, because its own draws cannot be seeded. If there are an
            executor and an open simulator, which workers cannot use.
        TypeError: If `executor` is neither an executor nor a function.
        WorkerLostError: If an executor loses a worker, or a new one loses it again; the text names
            the shots.
        RuntimeError: The engine's error.
        ImportError: If a progress bar is wanted and tqdm is not installed.
    """
    check_shots(shots)
    if executor is not None:
        check_executor(executor)
        refuse_open_simulator(filter)
    plan = shot_plan(program, read_flags, filter, seeded=seed is not None)
    if executor is not None and plan.runs_once_a_shot:
        packed = distributed_shots(plan, shots, seed, executor, progress=progress)
    else:
        packed = _outcomes(plan, shots, seed, progress=progress)
    return plan.samples(packed)


def _outcomes(plan: ShotPlan, shots: int, seed: int | None, *, progress: bool) -> Packed:
    if plan.runs_once_a_shot and seed is not None:
        seed = word32(seed, "seed")
        seed_engine(seed)
    if plan.open_filter is not None:
        return plan.outcomes(plan.open_filter, shots, seed, progress=progress)
    with Simulator(plan.choice.name) as simulator:
        return plan.outcomes(simulator, shots, seed, progress=progress)
