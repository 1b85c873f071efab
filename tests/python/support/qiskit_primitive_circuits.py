"""Twenty circuits on which primitives are compared."""

from __future__ import annotations

import numpy as np
import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from qiskit import QuantumCircuit, transpile
from qiskit.circuit.library import QFTGate, efficient_su2, quantum_volume
from qiskit.circuit.random import random_circuit, random_clifford_circuit
from qiskit.quantum_info import SparsePauliOp

STANDARD = ["h", "x", "s", "t", "sx", "rx", "ry", "rz", "p", "u", "cx", "cz", "cp", "swap", "ccx"]


def unitary_circuits() -> dict[str, QuantumCircuit]:
    """The circuits by name, on 2 to 6 qubits, without measurements."""
    circuits = {
        f"random {seed}": random_circuit(2 + seed % 5, 6, max_operands=3, seed=seed)
        for seed in range(8)
    }
    circuits |= {
        f"Clifford {seed}": random_clifford_circuit(3 + seed % 3, 20, seed=seed)
        for seed in range(4)
    }
    circuits |= {f"volume {n}": quantum_volume(n, seed=n) for n in (2, 3, 4)}
    for num_qubits in (3, 5):
        fourier = QuantumCircuit(num_qubits)
        fourier.x(0)
        fourier.append(QFTGate(num_qubits), range(num_qubits))
        circuits[f"Fourier {num_qubits}"] = fourier
        ansatz = efficient_su2(num_qubits, reps=1)
        values = np.linspace(-2, 2, ansatz.num_parameters)
        circuits[f"ansatz {num_qubits}"] = ansatz.assign_parameters(values)
    ghz = QuantumCircuit(4)
    ghz.h(0)
    ghz.cx(0, [1, 2, 3])
    circuits["GHZ"] = ghz
    return circuits


def standard(circuit: QuantumCircuit) -> QuantumCircuit:
    """The circuit with gates that every simulator has."""
    return transpile(circuit, basis_gates=STANDARD, optimization_level=0)


def observables(num_qubits: int) -> list[SparsePauliOp]:
    """Sums of products of all letters."""
    rng = np.random.default_rng(num_qubits)
    labels = ["".join(rng.choice(list("IXYZ"), num_qubits)) for _ in range(12)]
    return [SparsePauliOp(labels[k : k + 4], rng.uniform(-1, 1, 4)).simplify() for k in (0, 4, 8)]
