"""OpenQASM programs run on the engine, as matrices and states."""

from __future__ import annotations

import importlib
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from models.matrices import Matrix

for package in ("qiskit", "openqasm3"):
    pytest.importorskip(package, reason=f"{package} is not installed")
qasm: Any = importlib.import_module("nimbrel.qasm")

HEADER = 'OPENQASM 3.0;\ninclude "stdgates.inc";\n'
HEADER2 = 'OPENQASM 2.0;\ninclude "qelib1.inc";\n'


def final_state(program: nb.RecordArray) -> Matrix:
    with nb.DenseSimulator() as sim:
        sim.run(program)
        state: Matrix = sim.state().copy()
    return state


def matrix_of(text: str) -> Matrix:
    """The matrix of a program without measurements: column k is the image of basis state k."""
    read = qasm.loads(text)
    n = read.num_qubits
    columns = [
        final_state(nb.program(nb.reset(n), nb.write(range(n), k), read.program[1:]))
        for k in range(1 << n)
    ]
    matrix: Matrix = np.array(columns).T
    return matrix


def up_to_phase(matrix: Matrix) -> Matrix:
    """The matrix times the phase that makes its first large element positive."""
    flat = matrix.ravel()
    first = flat[np.flatnonzero(abs(flat) > 1e-6)[0]]
    scaled: Matrix = matrix * (abs(first) / first)
    return scaled


def assert_same_up_to_phase(actual: Matrix, expected: Matrix) -> None:
    np.testing.assert_allclose(up_to_phase(actual), up_to_phase(expected), rtol=0, atol=1e-12)


def bits_of(text: str, **inputs: Any) -> dict[str, int]:
    """Run a program once; the number in each classical register."""
    read = qasm.loads(text, inputs=inputs)
    with nb.DenseSimulator() as sim:
        sim.run(read.program)
        return {name: sim.flags(flags[0], len(flags)) for name, flags in read.bits.items()}


def outcomes(text: str, shots: int) -> set[tuple[int, ...]]:
    """The numbers in the classical registers that several runs gave."""
    read = qasm.loads(text)
    found: set[tuple[int, ...]] = set()
    with nb.DenseSimulator() as sim:
        for _ in range(shots):
            sim.run(read.program)
            found.add(tuple(sim.flags(flags[0], len(flags)) for flags in read.bits.values()))
    return found


def error_of(text: str) -> str:
    with pytest.raises(qasm.QasmError) as raised:
        qasm.loads(text)
    return str(raised.value)
