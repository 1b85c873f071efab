"""The backend: its target, its options and its results."""

from __future__ import annotations

import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from nimbrel.qiskit import NimbrelBackend, from_circuit
from nimbrel.qiskit.target import make_target
from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister, transpile
from qiskit.circuit.library import QFTGate, get_standard_gate_name_mapping
from qiskit.providers import JobStatus
from qiskit.quantum_info import random_clifford
from qiskit.transpiler import generate_preset_pass_manager

from support.qiskit_door import aer_counts, assert_same_distribution, counts_of


def bell() -> QuantumCircuit:
    circuit = QuantumCircuit(2, name="bell", metadata={"made": "here"})
    circuit.h(0)
    circuit.cx(0, 1)
    circuit.measure_all()
    return circuit


def dynamic() -> QuantumCircuit:
    circuit = QuantumCircuit(QuantumRegister(3), ClassicalRegister(3, "c"))
    circuit.h(0)
    circuit.measure(0, 0)
    with circuit.if_test((circuit.clbits[0], 1)):
        circuit.append(QFTGate(2), [1, 2])
    with circuit.switch(circuit.cregs[0]) as case:
        with case(1):
            circuit.ccx(0, 1, 2)
        with case(case.DEFAULT):
            circuit.rzx(0.5, 0, 1)
    with circuit.for_loop(range(2)):
        circuit.ry(0.4, 2)
    with circuit.while_loop((circuit.clbits[0], 1)):
        circuit.h(0)
        circuit.measure(0, 0)
    circuit.measure([1, 2], [1, 2])
    return circuit


@pytest.mark.parametrize("level", [0, 1, 2, 3])
def test_transpilation_keeps_a_dynamic_circuit(level: int) -> None:
    circuit = dynamic()
    ready = transpile(circuit, NimbrelBackend(), optimization_level=level, seed_transpiler=1)
    assert {"if_else", "while_loop"} <= set(ready.count_ops())
    assert_same_distribution(counts_of(ready), aer_counts(circuit))


@pytest.mark.parametrize("level", [0, 2])
def test_a_pass_manager_keeps_the_instructions_of_the_target(level: int) -> None:
    circuit = QuantumCircuit(3)
    circuit.rzz(0.3, 0, 1)
    circuit.cswap(0, 1, 2)
    circuit.cu(0.1, 0.2, 0.3, 0.4, 2, 1)
    ready = generate_preset_pass_manager(level, backend=NimbrelBackend()).run(circuit)
    assert ready.count_ops() == circuit.count_ops()


def test_what_is_not_in_the_target_is_synthesised() -> None:
    circuit = QuantumCircuit(3)
    circuit.append(QFTGate(3), range(3))
    circuit.append(random_clifford(2, seed=2), [0, 2])
    ready = transpile(circuit, NimbrelBackend())
    assert set(ready.count_ops()) <= set(make_target().operation_names)


def test_every_standard_gate_is_in_the_target() -> None:
    assert set(get_standard_gate_name_mapping()) <= set(make_target().operation_names)


def test_every_gate_of_the_target_is_translated() -> None:
    target = make_target()
    for name in get_standard_gate_name_mapping():
        operation = target.operation_from_name(name)
        circuit = QuantumCircuit(operation.num_qubits, operation.num_clbits)
        circuit.append(operation, circuit.qubits, circuit.clbits)
        values = [1] * circuit.num_parameters  # a delay takes integers
        assert from_circuit(circuit, values).num_qubits == operation.num_qubits


def test_a_result() -> None:
    job = NimbrelBackend().run(bell(), shots=100, memory=True, seed_simulator=2)
    result = job.result()
    counts = result.get_counts()
    memory = result.get_memory()
    assert job.status() is JobStatus.DONE
    assert result.job_id == job.job_id()
    assert result.backend_name == "nimbrel"
    assert sum(counts.values()) == len(memory) == 100
    assert counts == {outcome: memory.count(outcome) for outcome in counts}
    assert set(counts) == {"00", "11"}
    assert result.results[0].header["metadata"] == {"made": "here"}


def test_several_circuits() -> None:
    other = QuantumCircuit(1, 1, name="other")
    other.x(0)
    other.measure(0, 0)
    result = NimbrelBackend().run([bell(), other], shots=10).result()
    assert result.get_counts("other") == {"1": 10}
    assert sum(result.get_counts("bell").values()) == 10


def test_options_of_the_backend_and_of_a_run() -> None:
    backend = NimbrelBackend(shots=7, filter="StreamSparseQPU")
    assert sum(backend.run(bell()).result().get_counts().values()) == 7
    assert sum(backend.run(bell(), shots=9).result().get_counts().values()) == 9


def test_a_seed_repeats_the_memory() -> None:
    backend = NimbrelBackend(memory=True, seed_simulator=5)
    first = backend.run([bell(), bell()]).result()
    again = backend.run([bell(), bell()]).result()
    assert first.get_memory(0) == again.get_memory(0)
    assert first.get_memory(0) != first.get_memory(1)


@pytest.mark.parametrize("name", ["StreamQPU", "StreamSparseQPU", "StreamCliffordQPU"])
def test_a_named_filter(name: str) -> None:
    counts = NimbrelBackend().run(bell(), filter=name).result().get_counts()
    assert set(counts) == {"00", "11"}


def test_more_than_64_classical_bits() -> None:
    circuit = QuantumCircuit(70)
    circuit.x([0, 69])
    circuit.measure_all()
    counts = NimbrelBackend().run(circuit, shots=3).result().get_counts()
    assert counts == {"1" + "0" * 68 + "1": 3}
