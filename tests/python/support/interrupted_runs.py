"""Runs programs that Ctrl-C interrupts while a sweep is on its way."""

from __future__ import annotations

import json
import os
import signal
import subprocess
import sys
import time
from pathlib import Path
from typing import Any

POINTS = 50 + 10 * (os.cpu_count() or 1)  # more than are handed out at first
WAIT_SECONDS = 600.0  # a guard against waiting for ever

# The whole process group is ended afterwards.
SOURCE = """
import json, os, signal, sys
sys.path[:0] = {path!r}
from concurrent.futures import ProcessPoolExecutor, ThreadPoolExecutor
from multiprocessing import get_context
{imports}
import nimbrel as nb
from support.interrupted_points import waiting
from support.sweep_points import FEEDING

def make():
    made.append({make})
    return made[-1]

if __name__ == "__main__":
    signal.signal(signal.SIGINT, signal.default_int_handler)  # a parent may have it ignored
    made = []
    try:
        {run}
    except KeyboardInterrupt:
        open({folder!r} + "/stop", "w").close()
        try:
            answer = "open, with %d points" % len(made[0].submit(os.listdir, {folder!r}).result())
        except RuntimeError as error:
            answer = str(error)
        print(json.dumps(answer), flush=True)
        os._exit(0)
"""
SWEEP = (
    "nb.sweep(waiting, [{folder!r} + '/%d' % i for i in range({points})], shots=1, executor={e})"
)


def interrupted(folder: Path, make: str, executor: str, imports: str = "") -> Any:
    """What a program prints that is interrupted when its first point has begun.

    Args:
        folder: Where the points leave their marks.
        make: An expression that makes an executor.
        executor: The argument `executor`: "make" or "make()".
        imports: What `make` needs.
    """
    run = SWEEP.format(folder=str(folder), points=POINTS, e=executor)
    source = SOURCE.format(path=sys.path, imports=imports, make=make, run=run, folder=str(folder))
    with subprocess.Popen(
        [sys.executable, "-c", source], stdout=subprocess.PIPE, text=True, start_new_session=True
    ) as process:
        try:
            end = time.monotonic() + WAIT_SECONDS
            while not list(folder.iterdir()):
                assert process.poll() is None
                assert time.monotonic() < end
                time.sleep(0.01)
            os.kill(process.pid, signal.SIGINT)
            assert process.stdout is not None
            return json.loads(process.stdout.readline())
        finally:
            os.killpg(process.pid, signal.SIGKILL)
