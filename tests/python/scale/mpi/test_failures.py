"""A rank that fails ends all ranks, with a text on standard error."""

from pathlib import Path

import pytest

from support.mpi import on_ranks

DRIVERS = Path(__file__).parent / "drivers"
TEXTS = {
    "killed": "signal 9",
    "memory": "rank 1: no memory for a part of 0.25 GiB",
    "unequal": "the ranks were given different work: ranks 0, 2, 3: run",
    "own_error": "KeyError: 'of this rank alone'",
    "left_early": "rank 1: close",
    "forgotten": "rank 1: forget_flags",
    "ended_between": "rank 1: exit",
}
UNEQUAL_TEXTS = {
    "arguments": "rank 1: Simulator",
    "exit": "rank 1: exit",
    "error": "KeyError: 'of this rank alone'",
    "shots": "rank 1: sample",
    "no_reset": "rank 1: sample: the first record of the program must be its reset",
}


@pytest.mark.parametrize("case", TEXTS)
def test_all_ranks_end_with_the_text(case: str) -> None:
    check_end("failures.py", case, TEXTS[case])


@pytest.mark.parametrize("case", UNEQUAL_TEXTS)
def test_all_ranks_end_if_one_differs(case: str) -> None:
    check_end("unequal_ranks.py", case, UNEQUAL_TEXTS[case])


def test_ranks_that_call_exit_together_keep_their_code(tmp_path: Path) -> None:
    program = tmp_path / "leave.py"
    program.write_text(
        "import sys, nimbrel.mpi\nwith nimbrel.mpi.Simulator():\n    sys.exit(3)\n",
        encoding="utf-8",
    )
    found = on_ranks(4, program)
    assert (found.returncode, found.stdout) == (3, "")
    assert "Traceback" not in found.stderr


def check_end(driver: str, case: str, text: str) -> None:
    found = on_ranks(4, DRIVERS / driver, case)
    assert found.returncode != 0
    assert text in found.stderr
    assert "came to its end" not in found.stdout
