"""The sparse simulator of the package qdk as a contestant of the sparse benchmark.

A program becomes one operation of the package's own language, gate by gate, which is compiled
before anything is timed. A timed run is the call of that operation on qubits that are there
already. The interface offers no call without its own parsing, and gates are interpreted one by
one; the former is timed apart, as the call of an operation without gates.
"""

import importlib
import os
from collections.abc import Iterable
from math import radians
from typing import Any

import numpy as np
from sparse_engine import Terms
from sparse_tasks import Gate, Program

# Read at import. A benchmark reports to nobody.
os.environ.setdefault("QDK_PYTHON_TELEMETRY", "none")
qsharp: Any = importlib.import_module("qdk.qsharp")

SMALLEST = 1e-12  # an amplitude below is none


class Qdk:
    """One program; the machine holds one at a time."""

    name = "qdk"

    def __init__(self, task: Program) -> None:
        """Compile the program and allocate its qubits."""
        self._task = task
        qsharp.init()
        qsharp.eval(operation("Gates", task.gates))
        measured = ", ".join(f"qs[{qubit}]" for qubit in task.measured)
        # Resetting qubits one by one is no part of the task; all others are unmeasured zeros.
        qsharp.eval(
            "operation Whole(qs : Qubit[]) : Result[] {"
            f" Gates(qs); Std.Measurement.MResetEachZ([{measured}]) }}"
        )
        qsharp.eval(operation("Nothing", ()))
        qsharp.eval(f"use qs = Qubit[{task.num_qubits}];")

    def state(self) -> Terms:
        """Run the gates; the terms in ascending order of their index."""
        qsharp.eval("Gates(qs);")
        dump = qsharp.dump_machine()
        found = {index: dump[index] for index in dump if abs(dump[index]) > SMALLEST}
        qsharp.eval("ResetAll(qs);")
        # The first qubit is the most significant one there.
        width = self._task.num_qubits
        indices = np.array([_reversed(index, width) for index in found], dtype=np.uint64)
        order = np.argsort(indices)
        return indices[order], np.array(list(found.values()), dtype=np.complex128)[order]

    def run(self) -> None:
        """Run the gates and the measurement, which leaves all qubits in 0."""
        qsharp.eval("Whole(qs)")

    def idle(self) -> None:
        """Do no more than call an operation."""
        qsharp.eval("Nothing(qs)")

    def close(self) -> None:
        """Free the qubits."""
        qsharp.init()


def operation(name: str, gates: Iterable[Gate]) -> str:
    """Source of an operation that applies gates to an array of qubits."""
    body = "\n".join(_statement(gate) for gate in gates)
    return f"operation {name}(qs : Qubit[]) : Unit {{\n{body}\n}}"


def _statement(gate: Gate) -> str:
    target, controls = f"qs[{gate.target}]", [f"qs[{qubit}]" for qubit in gate.controls]
    if gate.name == "PHASE":
        angle = repr(radians(gate.degrees))
        if controls:
            return f"Controlled R1([{', '.join(controls)}], ({angle}, {target}));"
        return f"R1({angle}, {target});"
    named = {("H", 0): "H", ("X", 0): "X", ("X", 1): "CNOT", ("X", 2): "CCNOT"}
    return f"{named[gate.name, len(controls)]}({', '.join([*controls, target])});"


def _reversed(index: int, width: int) -> int:
    return int(f"{index:0{width}b}"[::-1], 2)
