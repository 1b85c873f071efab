"""Programs that fork and draw, each run in a new interpreter.

Newer Pythons warn of a fork while threads run, and the tests' process has threads.
"""

from __future__ import annotations

import json
import multiprocessing
import os
import subprocess
import sys
from collections.abc import Callable
from multiprocessing.synchronize import Barrier
from typing import Any

import _lib_nb_sim as engine
import nimbrel as nb
import numpy as np

from support.before_forks import before_forks

BITS = 64  # two draws agree by chance once in 2**64
WAIT_SECONDS = 30.0

COMMAND = (sys.executable, "-W", "ignore::DeprecationWarning", "-c")
# The hook of `before_forks` is registered before those of the package, so it runs after them.
PROGRAM = (
    "import sys; sys.path[:0] = {path!r}; from support import before_forks; "
    "from support import fork_draws as f; f.show(f.{call})"
)

_workers_meet: Barrier | None = None


def answer_of(call: str) -> Any:
    """What a call of this module returns in a new interpreter."""
    command = [*COMMAND, PROGRAM.format(path=sys.path, call=call)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    assert (done.returncode, done.stderr) == (0, "")
    return json.loads(done.stdout)


def show(answer: object) -> None:
    print(json.dumps(answer))


def draw() -> int:
    """The outcomes of measuring a qubit in an equal superposition, again and again."""
    with nb.Simulator("StreamQPU") as sim:
        sim.run(nb.reset(1), *[nb.program(nb.h(0), nb.read(0, 2 + bit)) for bit in range(BITS)])
        return sim.flags(2, BITS)


def from_child(work: Callable[[], Any]) -> Any:
    """What the work returns in a forked child."""
    source, sink = os.pipe()
    child = os.fork()
    if child == 0:
        try:
            os.write(sink, json.dumps(work()).encode())
        finally:
            os._exit(0)
    os.close(sink)
    with os.fdopen(source, "rb") as answer:
        text = answer.read()
    os.waitpid(child, 0)
    return json.loads(text)


def family() -> list[int]:
    """Draws of two children, of two children of the second, and of the process itself."""
    first = from_child(draw)
    second = from_child(lambda: [from_child(draw), from_child(draw), draw()])
    return [first, *second, draw()]


def seeded_family(seed: int) -> list[int]:
    nb.seed(seed)
    return family()


def families_of_one_seed(seed: int) -> list[list[int]]:
    """Two families of one process, after a fork that belongs to neither."""
    from_child(draw)
    return [seeded_family(seed) for _ in range(2)]


def families_of_an_engine_seed(seed: int) -> list[list[int]]:
    """Seeds the engine directly, without the companion."""
    families = []
    for _ in range(2):
        engine.random_seed(0, seed)
        families.append(family())
    return families


def families_at_two_depths(seed: int) -> list[list[int]]:
    """One in the process, and one in a child that seeds itself."""
    return [seeded_family(seed), from_child(lambda: seeded_family(seed))]


def draws_beside_forks(seed: int) -> list[list[int]]:
    """Draws of a process without and with forks between them."""
    nb.seed(seed)
    alone = [draw() for _ in range(3)]
    nb.seed(seed)
    beside = []
    for _ in range(3):
        from_child(draw)
        beside.append(draw())
    return [alone, beside]


def nested_forks(seed: int) -> list[int]:
    """Draws of a child, of one whose fork began and ended during that fork, and of a third."""
    nb.seed(seed)
    inner: list[int] = []

    def fork_once() -> None:
        before_forks.clear()
        inner.append(from_child(draw))

    before_forks.append(fork_once)
    return [from_child(draw), *inner, from_child(draw)]


def draws_by_derivation(seed: int) -> list[int]:
    """The draws of the children and grandchildren, computed from the documented derivation."""
    draws = []
    for path in [(0,), (1, 0), (1, 1), (1,)]:
        derived = np.random.SeedSequence(seed, spawn_key=path).generate_state(1)[0]
        nb.seed(int(derived))
        draws.append(draw())
    return draws


def pool_draws(method: str, seed: int | None = None) -> list[int]:
    """The draws of two workers, sorted, because the order of the workers is undefined."""
    if seed is not None:
        nb.seed(seed)
    context: Any = multiprocessing.get_context(method)
    arguments = (context.Barrier(2),)
    with context.Pool(2, initializer=set_meeting, initargs=arguments) as pool:
        draws: list[int] = pool.map(draw_together, range(2), chunksize=1)
        pool.close()
        pool.join()
    return sorted(draws)


def two_pools(method: str, seed: int | None = None) -> list[list[int]]:
    return [pool_draws(method, seed) for _ in range(2)]


def set_meeting(meeting: Barrier) -> None:
    global _workers_meet
    _workers_meet = meeting


def draw_together(_task: int) -> int:
    """Draws after every worker has a task, so that no worker takes both."""
    assert _workers_meet is not None
    _workers_meet.wait(WAIT_SECONDS)
    return draw()
