"""A process that forks while a register has workers: the child has the register and no workers."""

import os
import random
import signal
import subprocess
import sys
import traceback
from collections.abc import Callable
from functools import partial
from typing import TypeAlias

import _lib_nb_sim as engine
import pytest

from models.opcodes import READ, H
from models.wire import Record, tagged
from programs.dense import gate_program
from support.dense import DenseFilter, Setting, Vector, assert_same_bits, open_dense, reset

Work: TypeAlias = Callable[[DenseFilter, Setting, list[Record]], None]

QUBITS = 17
FORKS = 5
MEASURE = tagged(READ, target_mask=0b111, read_flag=1)

# The forks happen in another interpreter, so that a hang or a crash ends only that process. Newer
# Pythons warn of a fork while threads run.
COMMAND = (sys.executable, "-W", "ignore::DeprecationWarning", "-c")
PROGRAM = "import sys; sys.path[:0] = {path!r}; from dense import test_fork as t; t.{call}"


def spread(num_qubits: int) -> Record:
    """A Hadamard on every qubit, so that no block is known to be zero."""
    return tagged(H, target_mask=(1 << num_qubits) - 1)


def outcome(filter_: DenseFilter, num_qubits: int, records: list[Record]) -> tuple[int, Vector]:
    """What is measured after the records, and the state then."""
    engine.random_seed(0, 7)
    filter_.run_records([*records, MEASURE])
    return filter_.flags(1, 3), filter_.state(num_qubits)


def assert_goes_on(
    filter_: DenseFilter, setting: Setting, num_qubits: int, before: list[Record]
) -> None:
    """Runs more records after `before` and compares with a filter without workers."""
    after = gate_program(random.Random(len(before)), num_qubits, 12)
    flags, state = outcome(filter_, num_qubits, after)
    with open_dense(engine, num_qubits, setting._replace(is_async=0)) as reference:
        expected_flags, expected_state = outcome(reference, num_qubits, [*before, *after])
    assert flags == expected_flags
    assert_same_bits(state, expected_state)


def use_until_deleted(filter_: DenseFilter, setting: Setting, before: list[Record]) -> None:
    """Uses the parent's register in the child: gates, reads, other shapes, deletion."""
    assert_goes_on(filter_, setting, QUBITS, before)
    for num_qubits in (QUBITS, 15, 12, QUBITS):
        filter_.run(reset(num_qubits))
        filter_.run_records([spread(num_qubits)])
        assert_goes_on(filter_, setting, num_qubits, [spread(num_qubits)])
    filter_.close()


def delete_at_once(filter_: DenseFilter, setting: Setting, before: list[Record]) -> None:
    """Deletes the parent's register in the child, then creates one of the same shape."""
    filter_.close()
    with open_dense(engine, QUBITS, setting) as own:
        own.run_records(before)
        assert_goes_on(own, setting, QUBITS, before)


def start_child(work: Callable[[], None]) -> int:
    """Forks; the child, whose id is returned, ends with 0 if the work raises nothing."""
    child = os.fork()
    if child:
        return child
    status = 1
    try:
        signal.alarm(40)  # ends a child that hangs
        work()
        status = 0
    except BaseException:
        traceback.print_exc()
    finally:
        os._exit(status)


def fork_between_gates(work: Work, setting: Setting) -> None:
    """Forks between gates. The parent runs gates while each child runs."""
    rng = random.Random(QUBITS)
    filter_ = DenseFilter(engine, setting)
    filter_.run(reset(QUBITS))
    done: list[Record] = []
    for _ in range(FORKS):
        part = [spread(QUBITS), *gate_program(rng, QUBITS, 4)]
        filter_.run_records(part)
        done += part
        child = start_child(partial(work, filter_, setting, done))
        filter_.run_records([spread(QUBITS)])
        done.append(spread(QUBITS))
        _, status = os.waitpid(child, 0)
        assert os.waitstatus_to_exitcode(status) == 0
    assert_goes_on(filter_, setting, QUBITS, done)
    print("done")


@pytest.mark.parametrize("work", [use_until_deleted, delete_at_once])
@pytest.mark.parametrize("setting", [Setting(), Setting(num_block_qubits=14)])
def test_parent_and_child_both_work_on(work: Work, setting: Setting) -> None:
    call = f"fork_between_gates(t.{work.__name__}, t.Setting{tuple(setting)})"
    command = [*COMMAND, PROGRAM.format(path=sys.path, call=call)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, "done\n", "")
