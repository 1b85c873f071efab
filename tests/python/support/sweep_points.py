"""Programs of points, for workers in other processes, which import them by their names."""

import os
import signal
from pathlib import Path
from typing import Any

import nimbrel as nb

FEEDING = nb.program(nb.reset(2), nb.h(0), nb.read(0, 2), nb.x(1, flag=2), nb.h(0), nb.read(0, 3))
"""A program that runs once a shot."""


def fed(angle: float) -> nb.Program:
    """A program that runs once a shot; the point is an angle."""
    return nb.program(
        *[nb.reset(2), nb.ry(angle, 0), nb.read(0, 2)],
        *[nb.x(1, flag=2), nb.ry(angle, 1), nb.read([0, 1], 3)],
    )


def turned(angle: float) -> nb.Program:
    """A program without measurements, whose Z on qubit 0 has the value cos(angle)."""
    return nb.program(nb.reset(2), nb.ry(angle, 0))


def drawn(angle: float) -> nb.Program:
    """A program whose outcomes are drawn from one state."""
    return nb.program(turned(angle), nb.read(0, 2))


def failing_at_thirty(angle: float) -> nb.Program:
    if angle == 30:
        raise KeyError("no such angle")
    return turned(angle)


def without_a_reset_at_thirty(angle: float) -> nb.Program:
    return nb.program(nb.h(0)) if angle == 30 else turned(angle)


def wide_at_thirty(angle: float) -> nb.Program:
    return nb.program(turned(angle), nb.h(5)) if angle == 30 else turned(angle)


class UnpicklableError(Exception):
    """An error whose copy cannot be made from its text alone."""

    def __init__(self, first: str, second: str) -> None:
        super().__init__(f"{first} {second}")


def failing_in_its_own_way(_point: float) -> nb.Program:
    raise UnpicklableError("a", "b")


def killing_its_worker(point: Any) -> nb.Program:
    """The points below 0 end the worker."""
    if point < 0:
        os.kill(os.getpid(), signal.SIGKILL)
    return turned(point)


def killing_once(point: tuple[float, str]) -> nb.Program:
    """Ends the worker if the named file is missing, which it makes."""
    angle, path = point
    if not Path(path).exists():
        Path(path).touch()
        os.kill(os.getpid(), signal.SIGKILL)
    return turned(angle)


def new_handle() -> int:
    """The handle of a filter that this process makes now; each filter has the next number."""
    with nb.Simulator("StreamQPU", max_num_threads=1) as simulator:
        return simulator.handle
