"""A run that Ctrl-C has ended does not stop the next one, not even if its traceback is kept."""

from __future__ import annotations

import gc
import sys
import threading
from types import FrameType
from typing import Any

import nimbrel as nb
import pytest

from support.sweep_points import turned

WAIT_SECONDS = 60.0


def interrupted_at(number: int) -> KeyboardInterrupt | None:
    """The error of a run that is interrupted in its call of that number; None if it has fewer.

    The interpreter looks for signals whenever a function begins.
    """
    left = number

    def trace(frame: FrameType, _event: str, _argument: Any) -> None:
        nonlocal left
        if frame.f_globals["__name__"].startswith(("nimbrel.running.", "contextlib")):
            left -= 1
            if left < 0:
                sys.settrace(None)
                raise KeyboardInterrupt

    before = sys.gettrace()
    sys.settrace(trace)
    try:
        nb.sweep(turned, [0.0], observable={"Z": 1.0})
    except KeyboardInterrupt as error:
        return error
    finally:
        sys.settrace(before)
    return None


def values_of_the_next_run() -> list[Any]:
    values: list[Any] = []

    def run() -> None:
        values.extend(nb.sweep(turned, [60.0], observable={"Z": 1.0}))

    thread = threading.Thread(target=run, daemon=True)
    thread.start()
    thread.join(WAIT_SECONDS)
    return values


@pytest.mark.filterwarnings("ignore:unclosed:ResourceWarning")  # closed with its traceback
def test_a_run_that_was_interrupted_in_any_call_does_not_stop_the_next() -> None:
    kept: list[KeyboardInterrupt] = []
    while (error := interrupted_at(len(kept))) is not None:
        kept.append(error)  # with its traceback, as a notebook does
        assert values_of_the_next_run() == pytest.approx([0.5]), f"call {len(kept) - 1}"
    assert len(kept) > 20
    kept.clear()
    gc.collect()
