"""Points that begin and do not end by themselves, for runs that are interrupted."""

import threading
from pathlib import Path

import nimbrel as nb

PAUSE = threading.Event()


def waiting(path: str) -> nb.Program:
    """Note in a file that the point has begun, and wait for the file "stop" beside it."""
    Path(path).touch()
    stop = Path(path).with_name("stop")
    while not stop.exists():
        PAUSE.wait(0.05)
    return nb.program(nb.reset(1))
