"""Other simulators as small adapters: a module for each, a class in it for each kind of task.

`Dense` is a `DenseRegister`; `Clifford` and `Sparse` are programs. engine.py has this engine's.
"""

import importlib
import importlib.metadata
import itertools
import time
from abc import ABC, abstractmethod
from collections.abc import Callable, Iterable, Sequence
from typing import Any, Final, Generic, TypeAlias, TypeVar

import numpy as np
import numpy.typing as npt
from gates import Gate
from harness import MOST_REPETITIONS, RepeatTimer, seconds_of

Amplitudes: TypeAlias = npt.NDArray[np.complex128]
Terms: TypeAlias = tuple[npt.NDArray[np.uint64], Amplitudes]
"""Indices in ascending order, and the amplitude of each."""
Call: TypeAlias = tuple[Callable[..., object], tuple[Any, ...]]
State = TypeVar("State")

DISTRIBUTIONS: Final = {
    "lightning": "pennylane-lightning",
    "aer": "qiskit-aer",
    "qsim": "qsimcirq",
}
"""Peer -> the package that it comes with, if that has another name."""


def load(kind: str, names: Iterable[str]) -> tuple[dict[str, Any], dict[str, str]]:
    """Import the adapters of one kind of task.

    Args:
        kind: Name of the class, such as "Dense".
        names: The modules here.

    Returns:
        Peer -> its class, for those that are installed; peer -> version, or "missing: " and why.
    """
    classes, versions = {}, {"nimbrel": importlib.metadata.version("nimbrel")}
    for name in names:
        try:
            classes[name] = getattr(importlib.import_module(f"peers.{name}"), kind)
            versions[name] = importlib.metadata.version(DISTRIBUTIONS.get(name, name))
        except (ImportError, OSError, RuntimeError) as error:
            versions[name] = f"missing: {error}"
    return classes, versions


class DenseRegister(ABC):
    """A register of a fixed number of qubits, in any state of norm 1.

    Made from the number of qubits and the number of threads, or None for the default.
    """

    max_gates: int = MOST_REPETITIONS
    """Most gates in one timed run."""

    @abstractmethod
    def load(self, state: Amplitudes) -> None:
        """Put the register into a state, shape (2**n,)."""

    @abstractmethod
    def state(self) -> Amplitudes:
        """A copy of the register's state, shape (2**n,)."""

    @abstractmethod
    def apply(self, gates: Sequence[Gate]) -> None:
        """Run gates once."""

    @abstractmethod
    def timer(self, gates: Sequence[Gate]) -> RepeatTimer:
        """Prepare timed runs of gates; whatever can be made beforehand is made here."""

    def close(self) -> None:  # noqa: B027 most registers end with their object
        """Free the register."""


class DirectRegister(DenseRegister):
    """A register with a Python call for each gate."""

    @abstractmethod
    def call(self, gate: Gate) -> Call:
        """The function and the arguments that run a gate, made beforehand."""

    def calls(self, gates: Sequence[Gate]) -> list[Call]:
        """The calls that run the gates."""
        return [self.call(gate) for gate in gates]

    def finish(self) -> None:
        """Wait until the gates of all calls are done; the last step of a timed run."""

    def apply(self, gates: Sequence[Gate]) -> None:
        self.timer(gates)(1)

    def timer(self, gates: Sequence[Gate]) -> RepeatTimer:
        return self.timer_of(self.calls(gates))

    def timer_of(self, calls: Sequence[Call]) -> RepeatTimer:
        """Time the plain loop over calls, which is the same loop for every simulator."""

        def run(repetitions: int) -> float:
            start = time.perf_counter()
            for _ in itertools.repeat(None, repetitions):
                for function, arguments in calls:
                    function(*arguments)
            self.finish()
            return time.perf_counter() - start

        return run


class Program(ABC, Generic[State]):
    """A simulator with one `Circuit`, of which it is made and which it holds ready."""

    @abstractmethod
    def state(self) -> State:
        """What the gates make of a register in 0."""

    @abstractmethod
    def run(self) -> Any:
        """Run the circuit from a register in 0, measure, and fetch the outcomes."""

    def seconds(self) -> float:
        """The time of a run."""
        return seconds_of(self.run)

    def close(self) -> None:
        """Free the register."""


class CliffordProgram(Program[list[str]]):
    """A Clifford circuit; its state are the images of Z on each qubit.

    Each image is a sign and a letter a qubit, qubit 0 first, "_" for none.
    """

    widest_state: int | None = None
    """Qubits of the widest register whose state can be had; None for any."""

    @abstractmethod
    def outcomes(self) -> list[int]:
        """The outcomes of a run, qubit 0 first."""

    def allows(self, outcomes: Sequence[int]) -> bool:
        """Whether a run may give these outcomes; True as well where that cannot be told."""
        del outcomes
        return True
