"""Many filters at once, many in turn, and a short soak: nothing grows."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path
from types import ModuleType

import nimbrel as nb
import pytest

SOAK = Path(__file__).parents[3] / "bench" / "soak"
AT_ONCE = 1000
TYPES = ("StreamQPU", "StreamSparseQPU", "StreamBitQPU", "StreamCliffordQPU", "StreamConnect")


def run_tool(name: str, *arguments: str) -> subprocess.CompletedProcess[str]:
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(filter(None, sys.path)))
    return subprocess.run(
        [sys.executable, str(SOAK / name), *arguments],
        capture_output=True,
        text=True,
        env=environment,
        check=False,
    )


def test_a_thousand_filters_at_once_each_keep_their_state(engine: ModuleType) -> None:
    handles = [engine.new_native_filter(TYPES[i % len(TYPES)]) for i in range(AT_ONCE)]
    assert len(set(handles)) == AT_ONCE
    local = [handle for i, handle in enumerate(handles) if TYPES[i % len(TYPES)] != TYPES[-1]]
    for handle in local:
        program = nb.program(nb.reset(10), *[nb.x(bit) for bit in range(10) if handle >> bit & 1])
        engine.put_instructions(handle, program, len(program))
    reads = nb.read(range(10), 2)
    for handle in local:
        engine.put_instructions(handle, reads, len(reads))
    assert [engine.fetch_read_result(handle, 2, 10) for handle in local] == [
        handle & 0x3FF for handle in local
    ]
    for handle in handles:
        engine.delete_native_filter(handle)
    with pytest.raises(SystemError):
        engine.get_status(handles[0])


def test_filters_in_turn_hold_no_memory() -> None:
    done = run_tool("many_filters.py", "--filters", "20000")
    assert (done.returncode, done.stderr) == (0, ""), done.stdout


def test_a_short_soak_is_level() -> None:
    done = run_tool("soak.py", "--seconds", "8", "--samples", "16", "--different", "3")
    assert done.returncode == 0, done.stdout + done.stderr
