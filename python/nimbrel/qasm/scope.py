"""The names of an OpenQASM 3 program and what they stand for."""

from __future__ import annotations

from collections.abc import Iterator, Mapping, Sequence
from contextlib import contextmanager
from dataclasses import dataclass, field
from typing import Any

from nimbrel.qasm.gate_calls import GateCall
from nimbrel.qasm.standard_gates import StandardGate
from nimbrel.qasm.values import Kind, Value, Variable


@dataclass(frozen=True)
class Qubits:
    """A qubit, or a register or an alias of several.

    Attributes:
        numbers: The qubits in the engine's numbering.
        is_register: Whether it is a register, also one of a single qubit.
    """

    numbers: Sequence[int]
    is_register: bool


@dataclass
class DefinedGate:
    """A gate that the program defines.

    Attributes:
        node: Its definition, an `openqasm3.ast.QuantumGateDefinition`.
        file: The file of the definition.
        expansions: The operations for angles that have been met, on the qubits 0, 1, ...
    """

    node: Any
    file: str
    expansions: dict[tuple[float, ...], list[GateCall]] = field(default_factory=dict)


@dataclass(frozen=True)
class Subroutine:
    """A subroutine that the program defines.

    Attributes:
        node: Its definition, an `openqasm3.ast.SubroutineDefinition`.
        file: The file of the definition.
    """

    node: Any
    file: str


@dataclass(frozen=True)
class Extern:
    """A function whose body is not in the program."""


@dataclass
class Frame:
    """A call of a subroutine that is being carried out.

    Attributes:
        kind: The type of its result, or None.
        value: The result, once it is known.
        flags: Where returns under a condition store the result.
        label: The label of the body's end, if such a return jumps there.
    """

    kind: Kind | None
    value: Value | None = None
    flags: list[int] | None = None
    label: int | None = None


Entry = Variable | Qubits | DefinedGate | StandardGate | Subroutine | Extern


class Scopes:
    """The names that are visible, and the variables that exist.

    A subroutine sees its own names and the global ones.
    """

    def __init__(self, built_in: Mapping[str, StandardGate]) -> None:
        """Begin with the global scope."""
        self._global: dict[str, Entry] = dict(built_in)
        self._frames: list[list[dict[str, Entry]]] = [[self._global]]

    @property
    def depth(self) -> int:
        """The subroutine calls around the present statement."""
        return len(self._frames) - 1

    @property
    def is_global(self) -> bool:
        """Whether a declaration would be a global one."""
        return len(self._frames) == 1 and len(self._frames[0]) == 1

    def find(self, name: str) -> Entry | None:
        """What a name stands for."""
        for scope in reversed(self._frames[-1]):
            if name in scope:
                return scope[name]
        return self._global.get(name)

    def is_from_outside(self, name: str) -> bool:
        """Whether a gate or a subroutine would find a name in the global scope alone."""
        return len(self._frames) > 1 and not any(name in scope for scope in self._frames[-1])

    def is_declared_here(self, name: str) -> bool:
        """Whether the innermost scope has the name."""
        return name in self._frames[-1][-1]

    def add(self, name: str, entry: Entry) -> None:
        """Declare a name in the innermost scope."""
        self._frames[-1][-1][name] = entry

    @contextmanager
    def block(self) -> Iterator[None]:
        """A block, whose names are forgotten at its end."""
        frame = self._frames[-1]
        frame.append({})
        try:
            yield
        finally:
            frame.pop()

    @contextmanager
    def frame(self) -> Iterator[None]:
        """The body of a gate or a subroutine."""
        self._frames.append([{}])
        try:
            yield
        finally:
            self._frames.pop()

    def variables(self) -> Iterator[Variable]:
        """Every variable that exists."""
        for frame in self._frames:
            for scope in frame:
                yield from (entry for entry in scope.values() if isinstance(entry, Variable))
