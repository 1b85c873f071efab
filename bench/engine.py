"""This engine by the interfaces of its peers."""

from collections.abc import Sequence

import _lib_nb_sim
import nimbrel as nb
import numpy as np
from gates import FIRST_FLAG, Circuit, Gate, record_of, records_of
from peers import Amplitudes, Call, CliffordProgram, DirectRegister, Program, State, Terms

PRINTED_WHOLE = 64  # a Clifford register of a multiple of that many qubits shows all of its rows


class Dense(DirectRegister):
    """The dense filter, one call of the module for each record."""

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        self._sim = nb.Simulator("StreamQPU", max_num_threads=threads or 0)
        self._sim.run(nb.reset(num_qubits))
        self._num_qubits = num_qubits

    @property
    def handle(self) -> int:
        """The module's number of the filter."""
        return self._sim.handle

    def load(self, state: Amplitudes) -> None:
        _lib_nb_sim.push_state(self.handle, state, 0)

    def state(self) -> Amplitudes:
        dest = np.empty(1 << self._num_qubits, dtype=np.complex128)
        _lib_nb_sim.pull_state(self.handle, dest)
        return dest

    def call(self, gate: Gate) -> Call:
        return _lib_nb_sim.put_instructions, (self.handle, record_of(gate), 1)

    def whole_call(self, gates: Sequence[Gate]) -> list[Call]:
        """The one call that runs all gates."""
        records = records_of(gates)
        return [(_lib_nb_sim.put_instructions, (self.handle, records, len(records)))]

    def finish(self) -> None:
        _lib_nb_sim.finish(self.handle)

    def close(self) -> None:
        self._sim.close()


class BatchedDense(Dense):
    """The dense filter, one call of the module for the whole list."""

    def calls(self, gates: Sequence[Gate]) -> list[Call]:
        return self.whole_call(gates)


class SettledDense(Dense):
    """The dense filter, one call for each record, and `finish` after it: no gate waits."""

    def calls(self, gates: Sequence[Gate]) -> list[Call]:
        finish: Call = (_lib_nb_sim.finish, (self.handle,))
        return [call for gate in gates for call in (self.call(gate), finish)]


class FilterProgram(Program[State]):
    """A circuit on a filter; a run is one call with all records, and the fetch of the flags."""

    filter_name: str

    def __init__(self, circuit: Circuit) -> None:
        self._sim = nb.Simulator(self.filter_name)
        self._bits = len(circuit.measured)
        self._width = circuit.num_qubits
        self._gates = records_of(circuit.gates)
        reads = nb.read(circuit.measured, FIRST_FLAG)
        self._whole = nb.program(nb.reset(self._width), self._gates, reads)

    def run(self) -> int:
        """The outcomes of a run as the bits of an integer."""
        self._sim.run(self._whole)
        return self._sim.flags(FIRST_FLAG, self._bits)

    def close(self) -> None:
        self._sim.close()


class Clifford(FilterProgram[list[str]], CliffordProgram):
    """The Clifford filter."""

    filter_name = "StreamCliffordQPU"

    def run(self) -> int:
        """The outcomes of a run, without the companion's checks of the program.

        On a long program these take as long as the engine; bench/checks.py times them.
        """
        _lib_nb_sim.put_instructions(self._sim.handle, self._whole, len(self._whole))
        return self._sim.flags(FIRST_FLAG, self._bits)

    def state(self) -> list[str]:
        """The rows of the same gates on a register that is printed whole."""
        width = -(-self._width // PRINTED_WHOLE) * PRINTED_WHOLE
        assert isinstance(self._sim, nb.CliffordSimulator)
        self._sim.run(nb.reset(width), self._gates)
        return [row[: self._width + 1] for row in self._sim.generators()[: self._width]]

    def outcomes(self) -> list[int]:
        flags = self.run()
        return [flags >> qubit & 1 for qubit in range(self._bits)]


class Sparse(FilterProgram[Terms]):
    """The sparse filter."""

    filter_name = "StreamSparseQPU"

    def state(self) -> Terms:
        assert isinstance(self._sim, nb.SparseSimulator)
        self._sim.run(nb.reset(self._width), self._gates)
        return self._sim.terms()
