"""Helpers of the engine's tests: records, a driver of a filter, exact errors."""

from __future__ import annotations

import contextlib
from collections.abc import Callable, Iterator
from types import ModuleType
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from models.program import ModelError
from models.wire import TAG

PARSE_ERROR = "Error: argument parsing error."
UNKNOWN_HANDLE = "Error: native filter not found."


def op(low: int) -> int:
    """The full opcode of an operation that is known by its low 32 bits."""
    return TAG << 32 | low


def rec(low: int, **words: Any) -> np.ndarray:
    """One record of the engine's tag. Words that are not given are 0."""
    return nb.record(op(low), **words)


@contextlib.contextmanager
def raises_engine_error(text: str) -> Iterator[None]:
    """Expects an engine error: a SystemError caused by a RuntimeError with this text."""
    with pytest.raises(SystemError, match="returned a result with an exception set") as caught:
        yield
    cause = caught.value.__cause__
    assert type(cause) is RuntimeError
    assert cause.args == (text,)


def failure_of(call: Callable[[], Any]) -> Any:
    """The result of the call, or the text of its error, from the engine or from a model."""
    try:
        return call()
    except ModelError as error:
        return f"RuntimeError('{error}')"
    except SystemError as error:
        cause = error.__cause__
        return f"{type(cause).__name__}('{cause}')"


class FilterDriver:
    """One filter and the module's calls on it."""

    def __init__(self, engine: ModuleType, type_name: str) -> None:
        self.engine = engine
        self.handle = engine.new_native_filter(type_name)

    def run(self, *parts: np.ndarray) -> None:
        records = nb.program(*parts)
        assert self.engine.put_instructions(self.handle, records, len(records)) is None

    def fails(self, text: str, *parts: np.ndarray) -> None:
        """Runs the parts in one call and expects exactly this failure."""
        with raises_engine_error(text):
            self.run(*parts)

    def call(self, name: str, *arguments: Any) -> Any:
        """An engine function on this filter."""
        return getattr(self.engine, name)(self.handle, *arguments)

    def call_fails(self, text: str, name: str, *arguments: Any) -> None:
        with raises_engine_error(text):
            self.call(name, *arguments)

    def flags(self, first: int, count: int) -> int:
        word: int = self.call("fetch_read_result", first, count)
        return word

    def flag(self, number: int) -> int:
        return self.flags(number, 1)

    def debug(self, on: int = 1) -> None:
        self.call("enable_qubit_debugging", on)

    def events(self) -> list[tuple[str, str, int, list[int]]]:
        """Takes every queued event, the oldest first."""
        taken = []
        while (event := self.call("get_next_event")) is not None:
            name, message, code, ids = event
            taken.append((name, message, code, ids.tolist()))
        return taken

    def close(self) -> None:
        self.engine.delete_native_filter(self.handle)


class BitFilter(FilterDriver):
    """One "StreamBitQPU" filter."""

    def __init__(self, engine: ModuleType) -> None:
        super().__init__(engine, "StreamBitQPU")

    def state(self) -> str:
        """The register as text, qubit 0 first."""
        text: str = self.call("pull_state", np.zeros(1, dtype=np.complex128))
        return text


@contextlib.contextmanager
def open_bit_filter(engine: ModuleType) -> Iterator[BitFilter]:
    """A bit filter for tests that need several, or one for each generated example."""
    filter_ = BitFilter(engine)
    try:
        yield filter_
    finally:
        filter_.close()
