"""Every family of MQT Bench has the state that Qiskit computes, or the distribution of Aer.

The sizes of the quick form are in `QUICK`; the marker `slow` runs all from 5 to 10 qubits, and the
smallest size of the families that have none there.
"""

from __future__ import annotations

from collections.abc import Callable, Iterator
from typing import Any

import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")
pytest.importorskip("mqt.bench", reason="mqt.bench has no wheel for this Python")

from mqt.bench import BenchmarkLevel, get_benchmark
from mqt.bench.benchmarks import get_available_benchmark_names
from nimbrel.qiskit import to_statevector
from qiskit import QuantumCircuit, transpile
from qiskit.quantum_info import Statevector

from support.qiskit_door import (
    aer_counts,
    assert_equal_up_to_phase,
    assert_same_distribution,
    counts_of,
)

# MQT Bench builds a circuit of Shor with an argument that Qiskit deprecates.
pytestmark = pytest.mark.filterwarnings("ignore:.*annotated:DeprecationWarning")

RANGE = range(5, 11)
QUICK = {5, 6, 7}


def sizes_where(condition: Callable[[int], bool]) -> list[int]:
    return [size for size in RANGE if condition(size)]


EVEN = sizes_where(lambda n: n % 2 == 0)
ODD = sizes_where(lambda n: n % 2 == 1)
FOURS = sizes_where(lambda n: n % 4 == 0)
SPECIAL_SIZES = {
    "bmw_quark_copula": EVEN,
    "cdkm_ripple_carry_adder": EVEN,
    "draper_qft_adder": EVEN,
    "full_adder": EVEN,
    "half_adder": ODD,
    "hrs_cumulative_multiplier": sizes_where(lambda n: n % 4 == 1),
    "modular_adder": EVEN,
    "multiplier": FOURS,
    "rg_qft_multiplier": FOURS,
    "seven_qubit_steane_code": [13],
    "shor": [18],
    "shors_nine_qubit_code": [17],
    "vbe_ripple_carry_adder": sizes_where(lambda n: n % 3 == 1),
}
DYNAMIC = {"dynamic_qft", "ghz_dynamic", "iqpe", "seven_qubit_steane_code", "shors_nine_qubit_code"}


def cases(*, dynamic: bool) -> Iterator[Any]:
    for family in get_available_benchmark_names():
        if (family in DYNAMIC) == dynamic:
            for size in SPECIAL_SIZES.get(family, RANGE):
                is_quick = size in QUICK or (dynamic and size < 14)
                marks = () if is_quick else (pytest.mark.slow,)
                yield pytest.param(family, size, id=f"{family} {size}", marks=marks)


def aer_state(circuit: QuantumCircuit) -> Any:
    """The state by Aer, for circuits on which Qiskit's takes minutes."""
    aer = pytest.importorskip("qiskit_aer")
    backend = aer.AerSimulator(method="statevector")
    ready = transpile(circuit, backend, optimization_level=0)
    ready.save_statevector()
    return backend.run(ready).result().get_statevector().data


def circuit_of(family: str, size: int) -> QuantumCircuit:
    return get_benchmark(family, BenchmarkLevel.ALG, size)


@pytest.mark.parametrize(("family", "size"), cases(dynamic=False))
def test_the_state(family: str, size: int) -> None:
    circuit = circuit_of(family, size).remove_final_measurements(inplace=False)
    found = to_statevector(circuit).data
    expected = aer_state(circuit) if size > max(RANGE) else Statevector(circuit).data
    assert_equal_up_to_phase(found, expected)


@pytest.mark.parametrize(("family", "size"), cases(dynamic=True))
def test_the_distribution(family: str, size: int) -> None:
    circuit = circuit_of(family, size)
    assert any(instruction.name == "if_else" for instruction in circuit.data)
    if circuit.num_clbits == 0 or circuit.data[-1].name != "measure":
        circuit.measure_all()
    assert_same_distribution(counts_of(circuit), aer_counts(circuit))
