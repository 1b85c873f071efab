"""Simulators that are not closed: they are freed with a warning and never copied."""

from __future__ import annotations

import copy
import gc
import pickle
import subprocess
import sys
import warnings
from collections.abc import Callable, MutableSequence
from functools import partial
from typing import Any

import _lib_nb_sim as engine
import nimbrel as nb
import numpy as np
import pytest
from nimbrel import BitSimulator, Simulator

from support.driver import UNKNOWN_HANDLE, raises_engine_error
from support.fork_draws import from_child
from support.remote import LOOPBACK, Peer

COPIES: dict[str, Callable[[Any], object]] = {
    "copy": copy.copy,
    "deepcopy": copy.deepcopy,
    **{f"pickle {p}": partial(pickle.dumps, protocol=p) for p in range(6)},
}


class Refusing(BitSimulator):
    """A subclass that fails before it has a filter."""

    def __init__(self) -> None:
        raise KeyError("no filter")


class Linked(BitSimulator):
    """A simulator with a reference to itself, so that only the cycle collector frees it."""

    def __init__(self) -> None:
        super().__init__()
        self.link = self


def drop(held: MutableSequence[Any]) -> None:
    """Drops the last references to some simulators."""
    held.clear()
    gc.collect()


def assert_gone(handle: int) -> None:
    with raises_engine_error(UNKNOWN_HANDLE):
        engine.finish(handle)


def run_python(script: str, *options: str) -> subprocess.CompletedProcess[str]:
    command = [sys.executable, *options, "-c", f"import sys; sys.path[:0] = {sys.path!r}\n{script}"]
    return subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)


@pytest.mark.parametrize(
    "filter_type",
    ["StreamQPU", "StreamSparseQPU", "StreamBitQPU", "StreamCliffordQPU", "StreamConnect"],
)
def test_a_dropped_simulator_is_freed_with_a_warning(filter_type: str) -> None:
    held = [Simulator(filter_type)]
    handle = held[0].handle
    name = type(held[0]).__name__
    text = f'^unclosed <{name} "{filter_type}", handle {handle}>$'
    with pytest.warns(ResourceWarning, match=text) as warned:
        drop(held)
    assert_gone(handle)
    (warning,) = warned
    assert warning.filename == __file__
    # Python uses this object to report where it was allocated. The filter is freed already.
    assert repr(warning.source) == f'<{name} "{filter_type}", closed>'


def test_a_simulator_in_a_cycle_is_freed_by_the_collector() -> None:
    held: list[Simulator] = [Linked()]
    handle = held[0].handle
    text = f'^unclosed <Linked "StreamBitQPU", handle {handle}>$'
    with pytest.warns(ResourceWarning, match=text):
        drop(held)
    assert_gone(handle)


def test_a_warning_that_is_an_error_frees_as_well(monkeypatch: pytest.MonkeyPatch) -> None:
    raised: list[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", lambda seen: raised.append(seen.exc_type))
    held = [Simulator()]
    handle = held[0].handle
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        drop(held)
    assert raised == [ResourceWarning]
    assert_gone(handle)


def test_nothing_warns_of_a_closed_simulator(monkeypatch: pytest.MonkeyPatch) -> None:
    raised: list[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", raised.append)
    held = [Simulator(), Simulator()]
    held[0].close()
    with held[1]:
        pass
    drop(held)
    assert raised == []


def test_a_simulator_lives_as_long_as_a_call_on_it() -> None:
    with pytest.warns(ResourceWarning, match="^unclosed "):
        assert Simulator().flags(2, 40) == 0


def test_a_constructor_that_fails_leaves_no_filter(monkeypatch: pytest.MonkeyPatch) -> None:
    made: list[int] = []

    def make(filter_type: str) -> int:
        made.append(new_native_filter(filter_type))
        return made[-1]

    def fail(*_: object) -> None:
        raise MemoryError

    new_native_filter = engine.new_native_filter
    monkeypatch.setattr(engine, "new_native_filter", make)
    monkeypatch.setattr(engine, "setup_sim_params", fail)
    with pytest.raises(MemoryError):
        Simulator(verbose=0)
    assert_gone(*made)


def test_a_constructor_that_makes_no_filter_ends_quietly(monkeypatch: pytest.MonkeyPatch) -> None:
    raised: list[Any] = []
    monkeypatch.setattr(sys, "unraisablehook", raised.append)
    with pytest.raises(KeyError, match="no filter"):
        Refusing()
    with pytest.raises(RuntimeError, match="Unknown Filter type"):
        Simulator("StreamNothing")
    gc.collect()
    assert raised == []


def test_the_end_of_a_filter_ends_its_connection() -> None:
    peer = Peer()
    try:
        held = [Simulator("StreamConnect")]
        held[0].connect(LOOPBACK, peer.port)
        peer.ask("accept")
        with pytest.warns(ResourceWarning, match='^unclosed <RemoteSimulator "StreamConnect"'):
            drop(held)
        assert peer.ask("receive_rest") == b""
    finally:
        peer.end()


def test_an_array_that_a_filter_borrowed_is_given_back() -> None:
    buffer = nb.aligned_buffer(3)
    references = sys.getrefcount(buffer)
    held = [Simulator("StreamQPU")]
    held[0].override_state_buffer(buffer)
    assert sys.getrefcount(buffer) == references + 1
    with pytest.warns(ResourceWarning, match='^unclosed <DenseSimulator "StreamQPU"'):
        drop(held)
    assert sys.getrefcount(buffer) == references


@pytest.mark.parametrize("how", COPIES)
def test_a_copy_is_refused_with_what_to_do_instead(how: str) -> None:
    text = (
        r"^a BitSimulator cannot be copied or pickled, since its filter belongs to this process; "
        r"make another where it is needed and run the program there$"
    )
    with Simulator() as sim:
        sim.run(nb.reset(1), nb.x(0))
        with pytest.raises(TypeError, match=text):
            COPIES[how](sim)
        assert sim.bits() == "1"
    with pytest.raises(TypeError, match=text):
        COPIES[how](sim)


def test_a_simulator_shows_what_it_is() -> None:
    with Simulator("StreamQPU") as sim:
        assert repr(sim) == f'<DenseSimulator "StreamQPU", handle {sim.handle}>'
    assert repr(sim) == '<DenseSimulator "StreamQPU", closed>'


@pytest.mark.parametrize("place", ["sim", "sim.kept"])
def test_one_left_at_the_end_of_the_process_ends_quietly(place: str) -> None:
    script = f"""
from nimbrel import DenseSimulator, h, reset
class Kept(DenseSimulator):
    kept = None
sim = Kept("StreamQPU")
{place} = sim
sim.run(reset(17), h(range(17)))
print("done")
"""
    done = run_python(script)
    assert (done.returncode, done.stdout, done.stderr) == (0, "done\n", "")


def child_drops_its_copy() -> int:
    """A forked child drops the simulator of its parent, whose register has worker threads."""
    held = [Simulator("StreamQPU")]
    held[0].run(nb.reset(17), nb.x(16))

    def drop_copy() -> str:
        with warnings.catch_warnings(record=True) as warned:
            warnings.simplefilter("always")
            drop(held)
        return warned[0].category.__name__

    assert from_child(drop_copy) == "ResourceWarning"
    with held[0] as sim:
        sim.run(nb.x(0))
        (index,) = np.flatnonzero(sim.state())
        return int(index)


def test_a_forked_child_that_drops_its_copy_leaves_the_parent_one() -> None:
    script = "from companion import test_simulator_lifetime as t; print(t.child_drops_its_copy())"
    done = run_python(script, "-W", "ignore::DeprecationWarning")
    assert (done.returncode, done.stdout, done.stderr) == (0, f"{1 << 16 | 1}\n", "")
