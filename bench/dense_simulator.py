"""What the dense benchmark asks of every simulator, and the timing of those called directly."""

import itertools
import time
from abc import ABC, abstractmethod
from collections.abc import Callable, Sequence
from typing import Any, TypeAlias

from dense_model import Amplitudes
from dense_tasks import Gate

Call: TypeAlias = tuple[Callable[..., object], tuple[Any, ...]]
Timer: TypeAlias = Callable[[int], float]
"""Runs a list of gates as often as it is told and returns the seconds that they took."""


class Simulator(ABC):
    """One simulator with a register of a fixed number of qubits."""

    name: str
    max_gates: int | None = None
    """Most gates in one timed run; None when their number costs no memory."""

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
    def timer(self, gates: Sequence[Gate]) -> Timer:
        """Prepare timed runs of gates; whatever can be made beforehand is made here."""

    def close(self) -> None:  # noqa: B027 most registers end with their object
        """Free the register."""


class DirectSimulator(Simulator):
    """A simulator with a Python call for each gate."""

    @abstractmethod
    def call(self, gate: Gate) -> Call:
        """The function and the arguments that run a gate, made beforehand."""

    def calls(self, gates: Sequence[Gate]) -> list[Call]:
        """The calls that run the gates."""
        return [self.call(gate) for gate in gates]

    def apply(self, gates: Sequence[Gate]) -> None:
        """Run gates once."""
        for function, arguments in self.calls(gates):
            function(*arguments)

    def timer(self, gates: Sequence[Gate]) -> Timer:
        """Time the plain loop over the calls, which is the same loop for everyone."""
        calls = self.calls(gates)

        def run(repetitions: int) -> float:
            start = time.perf_counter()
            for _ in itertools.repeat(None, repetitions):
                for function, arguments in calls:
                    function(*arguments)
            return time.perf_counter() - start

        return run
