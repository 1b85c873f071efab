"""Starts test programs on many ranks."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

ENOUGH = 300
"""Seconds after which a launch counts as hanging. A rank that fails ends all within a few."""

_TESTS = Path(__file__).parents[1]


def on_ranks(ranks: int, *arguments: str | Path) -> subprocess.CompletedProcess[str]:
    """Run this Python with arguments on many ranks, more than there are cores if need be.

    Args:
        ranks: Number of ranks.
        *arguments: The arguments of the interpreter.

    Raises:
        subprocess.TimeoutExpired: If a rank hangs.
    """
    # Waiting ranks give their core away, since there may be fewer cores than ranks.
    command = ["mpirun", "--oversubscribe", "--mca", "mpi_yield_when_idle", "1", "-n", str(ranks)]
    if os.geteuid() == 0:
        command.insert(1, "--allow-run-as-root")
    paths = [str(_TESTS), *filter(None, [os.environ.get("PYTHONPATH")])]
    return subprocess.run(
        [*command, sys.executable, *map(str, arguments)],
        env={**os.environ, "PYTHONPATH": os.pathsep.join(paths)},
        capture_output=True,
        stdin=subprocess.DEVNULL,
        text=True,
        timeout=ENOUGH,
        check=False,
    )
