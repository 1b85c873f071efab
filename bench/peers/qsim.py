"""qsim by its Python package qsimcirq: single precision, gates fused to matrices of four qubits.

It runs whole circuits only and fuses them in each run, which is in its time. A circuit is
translated beforehand. Each run starts from a register in 0, so the time of a circuit of one gate
is taken off: that of the reset, of one pass over the state, and of the call. A circuit without
gates ends its process.
"""

import importlib
import math
import os
from collections.abc import Sequence
from typing import Any

import numpy as np
import numpy.typing as npt
from gates import Gate
from harness import RepeatTimer, seconds_of

from peers import Amplitudes, DenseRegister

cirq: Any = importlib.import_module("cirq")
qsimcirq: Any = importlib.import_module("qsimcirq")

FUSED_QUBITS = 4
_HALF_TURN = 180.0


def operation(gate: Gate, qubits: Sequence[Any]) -> Any:
    """A gate as cirq has it; `qubits` has qubit 0 first."""
    *controls, target = [qubits[qubit] for qubit in gate.qubits]
    exponent = gate.degrees / _HALF_TURN
    if gate.name == "RZZ":
        return cirq.ZZPowGate(exponent=exponent, global_shift=-0.5)(*controls, target)
    if gate.paulis:
        rotation = {"X": cirq.rx, "Y": cirq.ry, "Z": cirq.rz}[gate.paulis]
        return rotation(math.radians(gate.degrees))(target)
    if gate.name in ("PHASE", "CPHASE"):
        power = cirq.CZ if controls else cirq.Z
        return (power**exponent)(*controls, target)
    if len(controls) > 1 and gate.name == "CZ":
        return cirq.Z(target).controlled_by(*controls)
    return getattr(cirq, gate.name)(*controls, target)


class Dense(DenseRegister):
    """qsim's state vector; all processors unless told otherwise."""

    def __init__(self, num_qubits: int, threads: int | None) -> None:
        self._num_qubits = num_qubits
        cpu_threads = threads or len(os.sched_getaffinity(0))
        options = qsimcirq.QSimOptions(max_fused_gate_size=FUSED_QUBITS, cpu_threads=cpu_threads)
        simulator = qsimcirq.QSimSimulator(options)
        # The public calls translate the circuit each time; this is what they call then.
        self._module = simulator._sim_module
        self._options: dict[str, Any] = {**simulator.qsim_options, "s": 1}
        self._start: npt.NDArray[np.complex64] | None = None
        self._found: npt.NDArray[np.complex64] | None = None

    def load(self, state: Amplitudes) -> None:
        """Keep a state, rounded, for the next circuit."""
        self._start = state.astype(np.complex64)

    def state(self) -> Amplitudes:
        """The state after the last gates that were applied, scaled to norm 1.

        Rounded matrices are not unitary: each Hadamard takes 2e-8 off the norm.
        """
        if self._found is None:
            raise RuntimeError("no circuit has run")
        found = self._found.astype(np.complex128)
        found /= np.linalg.norm(found)
        return found

    def apply(self, gates: Sequence[Gate]) -> None:
        assert self._start is not None
        options = self._with_circuit(gates)
        found = self._module.qsim_simulate_fullstate(options, self._start.view(np.float32))
        self._found = found.view(np.complex64)

    def timer(self, gates: Sequence[Gate]) -> RepeatTimer:
        # Of the state, one amplitude is fetched, for which nothing is copied or put in order.
        amplitude = {"i": "0" * self._num_qubits}
        circuit = self._with_circuit(gates) | amplitude
        single = self._with_circuit([Gate("Z", (0,))]) | amplitude
        least = float("inf")

        def run(repetitions: int) -> float:
            nonlocal least
            self._start = self._found = None
            total = 0.0
            for _ in range(repetitions):
                least = min(least, seconds_of(lambda: self._module.qsim_simulate(single)))
                total += seconds_of(lambda: self._module.qsim_simulate(circuit))
            return total - repetitions * least

        return run

    def _with_circuit(self, gates: Sequence[Gate]) -> dict[str, Any]:
        qubits = cirq.LineQubit.range(self._num_qubits)  # the first one is the highest
        operations = [operation(gate, qubits[::-1]) for gate in gates]
        circuit = qsimcirq.QSimCircuit(cirq.Circuit(operations))
        translated, _ = circuit.translate_cirq_to_qsim(qubits)
        return self._options | {"c": translated}
