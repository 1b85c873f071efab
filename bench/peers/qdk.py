"""The sparse simulator of the package qdk.

A circuit becomes one operation of the package's own language, gate by gate, which is compiled
before anything is timed. A timed run is the call of that operation on qubits that are there
already. The interface offers no call without its own parsing, and gates are interpreted one by
one; the former is timed apart, as the call of an operation without gates.
"""

import importlib
import os
from collections.abc import Iterable
from typing import Any

import numpy as np
from gates import Circuit, Gate
from harness import seconds_of

from peers import Program, Terms

# Read at import. A benchmark reports to nobody.
os.environ.setdefault("QDK_PYTHON_TELEMETRY", "none")
qsharp: Any = importlib.import_module("qdk.qsharp")

SMALLEST = 1e-12  # an amplitude below is none
_NAMES = {"TOFFOLI": "CCNOT", "PHASE": "R1", "CPHASE": "Controlled R1"}


class Sparse(Program[Terms]):
    """One circuit; the package's machine holds one at a time."""

    def __init__(self, circuit: Circuit) -> None:
        """Compile the circuit and allocate its qubits."""
        self._width = circuit.num_qubits
        qsharp.init()
        qsharp.eval(operation("Gates", circuit.gates))
        measured = ", ".join(f"qs[{qubit}]" for qubit in circuit.measured)
        # Resetting qubits one by one is no part of the task; all others are unmeasured zeros.
        qsharp.eval(
            "operation Whole(qs : Qubit[]) : Result[] {"
            f" Gates(qs); Std.Measurement.MResetEachZ([{measured}]) }}"
        )
        qsharp.eval(operation("Nothing", ()))
        qsharp.eval(f"use qs = Qubit[{self._width}];")

    def state(self) -> Terms:
        qsharp.eval("Gates(qs);")
        dump = qsharp.dump_machine()
        found = {index: dump[index] for index in dump if abs(dump[index]) > SMALLEST}
        qsharp.eval("ResetAll(qs);")
        # The first qubit is the most significant one there.
        reversed_bits = [int(f"{index:0{self._width}b}"[::-1], 2) for index in found]
        indices = np.array(reversed_bits, dtype=np.uint64)
        order = np.argsort(indices)
        return indices[order], np.array(list(found.values()), dtype=np.complex128)[order]

    def run(self) -> None:
        """Run the gates and the measurement, which leaves all qubits in 0."""
        qsharp.eval("Whole(qs)")

    def idle_seconds(self) -> float:
        """The time of no more than the call of an operation."""
        return seconds_of(lambda: qsharp.eval("Nothing(qs)"))

    def close(self) -> None:
        qsharp.init()


def operation(name: str, gates: Iterable[Gate]) -> str:
    """Source of an operation that applies gates to an array of qubits."""
    body = "\n".join(map(_statement, gates))
    return f"operation {name}(qs : Qubit[]) : Unit {{\n{body}\n}}"


def _statement(gate: Gate) -> str:
    *controls, target = [f"qs[{qubit}]" for qubit in gate.qubits]
    arguments = ", ".join([*controls, target])
    for angle in gate.angles:
        arguments = f"{angle!r}, {target}"
        if controls:
            arguments = f"[{', '.join(controls)}], ({arguments})"
    return f"{_NAMES.get(gate.name, gate.name)}({arguments});"
