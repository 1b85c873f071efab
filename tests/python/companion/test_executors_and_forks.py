"""A process that forks while it or one of its threads runs points."""

from __future__ import annotations

import subprocess
import sys

# The thread draws shots for as long as the process forks, so the children have copies of a lock
# that it holds.
BESIDE = """
import os, signal, threading
import nimbrel as nb

program = nb.program(nb.reset(2), nb.h(0), nb.read(0, 2), nb.x(1, flag=2), nb.h(0), nb.read(0, 3))
stop = False

def build(_point):
    began.set()
    return program

def draw():
    while not stop:
        nb.sweep(build, range(3), shots=2000, filter="StreamQPU")

def forked():
    child = os.fork()
    if child == 0:
        signal.alarm(60)  # a lock that nobody releases would keep it waiting for ever
        found = nb.sweep(lambda _: program, [0], shots=3, filter="StreamQPU", seed=1)
        os._exit(0 if found[0].packed.tolist() == expected else 1)
    return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])

expected = nb.sample(program, 3, filter="StreamQPU", seed=1).packed.tolist()
began = threading.Event()
thread = threading.Thread(target=draw)
thread.start()
began.wait()
print([forked() for _ in range(10)])
stop = True
thread.join()
"""

# The child leaves through the run of which it has a copy.
INSIDE = """
import os, sys
import nimbrel as nb

def build(angle):
    child = os.fork()
    if child == 0:
        sys.exit(3)
    print(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
    return nb.program(nb.reset(1))

print(nb.sweep(build, [1], observable={"Z": 1.0}))
"""


def printed_by(source: str) -> str:
    command = [sys.executable, "-W", "ignore::DeprecationWarning", "-c", source]
    done = subprocess.run(command, capture_output=True, text=True, timeout=240, check=False)
    assert done.stderr == ""
    return done.stdout


def test_a_child_runs_points_of_its_own_while_a_thread_of_its_parent_has_the_turn() -> None:
    assert printed_by(BESIDE) == f"{[0] * 10}\n"


def test_a_child_may_leave_the_run_in_which_it_began() -> None:
    assert printed_by(INSIDE) == "3\n[1.0]\n"
