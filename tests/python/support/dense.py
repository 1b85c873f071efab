"""Helpers of the state-vector tests: filters to drive, states, and settings of the dense one."""

from __future__ import annotations

import contextlib
import ctypes
import random
from collections.abc import Callable, Iterable, Iterator
from types import ModuleType
from typing import Any, NamedTuple, TypeAlias, TypeVar

import nimbrel as nb
import numpy as np
import numpy.typing as npt

from models.arithmetic import Amplitude, Generator
from models.dense import DenseModel
from models.opcodes import RESET
from models.wire import Record, pack, tagged
from support.driver import FilterDriver

Vector: TypeAlias = npt.NDArray[np.complexfloating[Any, Any]]


class Setting(NamedTuple):
    """Simulator parameters of a dense register, with the engine's names."""

    num_block_qubits: int = 0
    max_num_threads: int = 0
    is_async: int = 1


def settings(block_sizes: Iterable[int]) -> list[Setting]:
    """Each block size with workers, without workers, and with a limit of one thread."""
    return [
        Setting(size, max_threads, is_async)
        for size in block_sizes
        for max_threads, is_async in ((0, 1), (0, 0), (1, 1))
    ]


def to_array(records: Iterable[Record]) -> np.ndarray:
    """Plain records as the array that the engine takes."""
    return np.frombuffer(pack(records), dtype=nb.QPU_OP)


def reset_record(num_qubits: int) -> Record:
    return tagged(RESET, target_mask=num_qubits)


def reset(num_qubits: int) -> np.ndarray:
    return to_array([reset_record(num_qubits)])


class RecordFilter(FilterDriver):
    """A filter that runs `Record` tuples."""

    def run_records(self, records: Iterable[Record]) -> None:
        """Runs them in one call."""
        self.run(to_array(records))


class StateFilter(RecordFilter):
    """A filter that holds amplitudes."""

    def load(self, state: Vector) -> None:
        """Replaces the whole state."""
        self.call("push_state", state, 0)

    def state(self, num_qubits: int) -> Vector:
        """All amplitudes in order of their index."""
        # An element that the engine does not write stays NaN.
        dest = np.full(1 << num_qubits, np.nan, dtype=np.complex128)
        assert self.call("pull_state", dest) == ""
        return dest


class DenseFilter(StateFilter):
    """One "StreamQPU" filter."""

    def __init__(self, engine: ModuleType, setting: Setting | None = None) -> None:
        super().__init__(engine, "StreamQPU")
        if setting is not None:
            self.set(**setting._asdict())

    def set(
        self,
        num_block_qubits: int = 0,
        max_ram_size_gb: int = 0,
        max_num_threads: int = 0,
        randomized: int = 0,
        use_opencl: int = 0,
        is_async: int = 1,
        verbose: int = 0,
    ) -> None:
        """Sets all seven parameters; they hold from the next reset on."""
        limits = (num_block_qubits, max_ram_size_gb, max_num_threads)
        switches = (randomized, use_opencl, is_async, verbose)
        self.engine.setup_sim_params(self.handle, *limits, *switches)


Driver = TypeVar("Driver", bound=RecordFilter)


@contextlib.contextmanager
def opened(driver: Driver, num_qubits: int | None) -> Iterator[Driver]:
    """The filter, with a register of `num_qubits` if given. Freed at the end."""
    try:
        if num_qubits is not None:
            driver.run(reset(num_qubits))
        yield driver
    finally:
        driver.close()


def open_dense(
    engine: ModuleType, num_qubits: int | None = None, setting: Setting | None = None
) -> contextlib.AbstractContextManager[DenseFilter]:
    """A dense filter, with a register of `num_qubits` if given. Freed at the end."""
    return opened(DenseFilter(engine, setting), num_qubits)


def random_state(rng: random.Random, num_qubits: int) -> Vector:
    """A normalised random state."""
    parts = [complex(rng.gauss(0, 1), rng.gauss(0, 1)) for _ in range(1 << num_qubits)]
    vector = np.array(parts, dtype=np.complex128)
    state: Vector = vector / np.linalg.norm(vector)
    return state


def holed_state(rng: random.Random, num_qubits: int) -> Vector:
    """A random state with whole pairs of zeros in it, some of them negative."""
    state = random_state(rng, num_qubits)
    parts = state.view(np.float64)
    for place in range(len(parts)):
        if rng.random() < 0.5:
            parts[place] = rng.choice((0.0, 0.0, -0.0))
    for place in range(0, len(parts), 2):
        if rng.random() < 0.3:
            parts[place : place + 2] = 0.0
    return state


def array(*values: complex) -> Vector:
    """A state by its amplitudes."""
    return np.array(values, dtype=np.complex128)


def bits_of(state: Vector) -> npt.NDArray[np.uint64]:
    """The raw words of the amplitudes, so that zeros of both signs differ."""
    return np.ascontiguousarray(state).view(np.uint64)


def assert_same_bits(got: Vector, expected: Vector) -> None:
    __tracebackhide__ = True
    differ = np.flatnonzero((bits_of(got) != bits_of(expected)).reshape(-1, 2).any(axis=1))
    shown = [(int(i), complex(got[i]), complex(expected[i])) for i in differ[:4]]
    assert not len(differ), f"{len(differ)} amplitudes differ; index, got, expected: {shown}"


def amplitudes(state: Vector) -> list[Amplitude]:
    """A vector as the model takes it."""
    return [(float(a.real), float(a.imag)) for a in state]


def model_of(state: Vector, seed: int = 0) -> DenseModel:
    """A model whose register holds the state."""
    model = DenseModel(Generator(seed))
    model.run([reset_record(len(state).bit_length() - 1)])
    model.load(amplitudes(state))
    return model


def vector(terms: Iterable[Amplitude]) -> Vector:
    """The model's amplitudes as an array, the signs of zeros kept."""
    return np.array(list(terms), dtype=np.float64).view(np.complex128).reshape(-1)


def aligned(length: int, beyond: int = 0) -> Vector:
    """An array of zeros that begins `beyond` bytes after a multiple of 32."""
    raw = np.zeros(16 * length + 64, dtype=np.uint8)
    start = -raw.ctypes.data % 32 + beyond
    view: Vector = raw[start : start + 16 * length].view(np.complex128)
    assert view.ctypes.data % 32 == beyond
    return view


def state_after(filter_: StateFilter, state: Vector, *parts: np.ndarray) -> Vector:
    """The state after the records."""
    filter_.load(state)
    filter_.run(*parts)
    return filter_.state(len(state).bit_length() - 1)


def basis(num_qubits: int, index: int) -> Vector:
    """The state in which term `index` is 1."""
    state = np.zeros(1 << num_qubits, dtype=np.complex128)
    state[index] = 1
    return state


def flush_native_output() -> None:
    """Flushes the engine's output, so that it is captured."""
    ctypes.CDLL(None).fflush(None)


def printed_by(capfd: Any, action: Callable[[], object]) -> str:
    """The text that the action prints on standard output, by Python or by C++."""
    flush_native_output()  # discards earlier output
    capfd.readouterr()
    action()
    flush_native_output()
    text: str = capfd.readouterr().out
    return text
