"""Circuits of MQT Bench, exported by Qiskit, give the results of Qiskit and Aer."""

from __future__ import annotations

import importlib
from contextlib import suppress
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from support.qasm_programs import final_state, qasm
from support.qiskit_circuits import quantum_info

bench: Any = pytest.importorskip("mqt.bench")
qasm2: Any = importlib.import_module("qiskit.qasm2")
qasm3: Any = importlib.import_module("qiskit.qasm3")

FAST = ["qft", "grover", "wstate", "graphstate", "vqe_su2", "hhl"]
STATIC = [
    *("bmw_quark_cardinality", "bmw_quark_copula", "bv", "cdkm_ripple_carry_adder", "dj"),
    *("draper_qft_adder", "full_adder", "ghz", "half_adder", "hrs_cumulative_multiplier"),
    *("modular_adder", "multiplier", "qaoa", "qftentangled", "qnn", "qpeexact", "qpeinexact"),
    *("qwalk", "randomcircuit", "rg_qft_multiplier", "vbe_ripple_carry_adder", "vqe_real_amp"),
    "vqe_two_local",
]
DYNAMIC = ["dynamic_qft", "ghz_dynamic", "iqpe"]
SIZES = range(5, 11)
DUMPS = {"2": qasm2.dumps, "3": qasm3.dumps}


def circuits(family: str, sizes: range) -> list[Any]:
    """The family's circuits of these sizes; a family has no circuit of some sizes."""
    made = []
    for size in sizes:
        # A family without a circuit of this size says what its size must be.
        with suppress(ValueError):
            made.append(bench.get_benchmark(family, bench.BenchmarkLevel.INDEP, size))
    assert made
    return made


def check_states(family: str, sizes: range, version: str) -> None:
    for circuit in circuits(family, sizes):
        unmeasured = circuit.remove_final_measurements(inplace=False)
        program = qasm.loads(DUMPS[version](unmeasured)).program
        expected = quantum_info.Statevector(unmeasured).data
        overlap = abs(np.vdot(final_state(program), expected))
        assert overlap == pytest.approx(1, abs=1e-10), circuit.num_qubits


@pytest.mark.parametrize("version", DUMPS)
@pytest.mark.parametrize("family", FAST)
def test_a_small_circuit_gives_the_state_of_qiskit(family: str, version: str) -> None:
    check_states(family, range(5, 7), version)


@pytest.mark.slow
@pytest.mark.parametrize("version", DUMPS)
@pytest.mark.parametrize("family", FAST + STATIC)
def test_every_circuit_gives_the_state_of_qiskit(family: str, version: str) -> None:
    check_states(family, SIZES, version)


@pytest.mark.slow
@pytest.mark.parametrize("family", DYNAMIC)
def test_a_dynamic_circuit_gives_the_distribution_of_aer(family: str) -> None:
    aer: Any = pytest.importorskip("qiskit_aer")
    shots = 4000
    for circuit in circuits(family, range(5, 8)):
        read = qasm.loads(qasm3.dumps(circuit))
        ours = nb.sample(read.program, shots, read_flags=read.read_flags, seed=5).counts()
        result = aer.AerSimulator(seed_simulator=5).run(circuit, shots=shots).result()
        theirs = {key.replace(" ", ""): count for key, count in result.get_counts().items()}
        for outcome in {*ours, *theirs}:
            a, b = ours.get(outcome, 0), theirs.get(outcome, 0)
            assert abs(a - b) <= 5 * np.sqrt(a + b), outcome
