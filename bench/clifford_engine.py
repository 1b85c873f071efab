"""The Clifford filter as a contestant of the Clifford benchmark."""

from collections.abc import Callable, Iterable, Sequence
from typing import Final, Protocol

from clifford_circuits import Circuit, Gate
from harness import seconds_of
from nimbrel import RecordArray, Simulator, h, program, read, reset, s, s_inv, x, y, z

FIRST_FLAG = 2  # the flags below are constants
PRINTED_WHOLE = 64  # a register of a multiple of that many qubits shows all of its rows

_BUILDERS: Final[dict[str, Callable[[int], RecordArray]]] = {
    "H": h,
    "S": s,
    "S_INV": s_inv,
    "X": x,
    "Y": y,
    "Z": z,
}


class Contestant(Protocol):
    """A simulator with one circuit, made beforehand.

    Attributes:
        name: What the table calls it.
        widest_rows: Qubits of the widest register whose generators can be had; None for any.
    """

    name: str
    widest_rows: int | None

    def generators(self) -> list[str]:
        """What the gates turn Z on each qubit into: a sign and a letter a qubit, qubit 0 first."""
        ...

    def outcomes(self) -> list[int]:
        """The outcomes of a run, qubit 0 first."""
        ...

    def allows(self, outcomes: Sequence[int]) -> bool:
        """Whether a run may give these outcomes; True as well where that cannot be told."""
        ...

    def seconds(self) -> float:
        """The time of a run."""
        ...


def record_of(gate: Gate) -> RecordArray:
    """One gate as a record."""
    if gate.name == "CNOT":
        control, target = gate.qubits
        return x(target, controls=control)
    return _BUILDERS[gate.name](gate.qubits[0])


def records_of(gates: Iterable[Gate]) -> RecordArray:
    """Gates as records, one each."""
    return program(*map(record_of, gates))


class Engine:
    """One circuit on the Clifford filter.

    The time is that of one call with all records, from the reset to the last measurement, and of
    fetching the flags.
    """

    name = "nimbrel"
    widest_rows: int | None = None

    def __init__(self, circuit: Circuit) -> None:
        """Make the records."""
        self._num_qubits = circuit.num_qubits
        self._sim = Simulator("StreamCliffordQPU")
        self._gates = records_of(circuit.gates)
        everything = read(range(circuit.num_qubits), FIRST_FLAG)
        self._whole = program(reset(circuit.num_qubits), self._gates, everything)

    def generators(self) -> list[str]:
        """The rows of the same gates on a register that is printed whole."""
        width = -(-self._num_qubits // PRINTED_WHOLE) * PRINTED_WHOLE
        self._sim.run(reset(width), self._gates)
        return [row[: self._num_qubits + 1] for row in self._sim.generators()[: self._num_qubits]]

    def outcomes(self) -> list[int]:
        """The flags of a run."""
        flags = self._run()
        return [flags >> qubit & 1 for qubit in range(self._num_qubits)]

    def allows(self, _outcomes: Sequence[int]) -> bool:
        """Not told: this filter selects among the lowest qubits only."""
        return True

    def seconds(self) -> float:
        """The time of a run."""
        return seconds_of(self._run)

    def close(self) -> None:
        """Free the filter."""
        self._sim.close()

    def _run(self) -> int:
        self._sim.run(self._whole)
        return self._sim.flags(FIRST_FLAG, self._num_qubits)
