"""Measurements, resets, feedback and repetition."""

from __future__ import annotations

import random
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from support.stim_circuits import (
    assert_frequency,
    bits,
    measured,
    nimbrel_stim,
    run_state,
    stim,
    stim_state,
)

UNITARY = [name for name, data in stim.gate_data().items() if data.is_unitary]
KEEPING = ["X", "Z", "S", "CX", "CZ", "SWAP", "ISWAP", "S_DAG", "SQRT_ZZ"]
MEASURING = ["M", "MX", "MY", "MR", "MRX", "MRY", "R", "RX", "RY", "MXX", "MYY", "MZZ"]


def random_circuit(rng: random.Random, num_qubits: int, length: int) -> Any:
    circuit = stim.Circuit()
    for _ in range(length):
        # Gates that keep basis states leave more outcomes determined.
        gates = KEEPING if rng.random() < 0.7 else UNITARY
        name = rng.choice(gates if rng.random() < 0.7 else MEASURING)
        data = stim.gate_data(name)
        a, b = rng.sample(range(num_qubits), 2)
        if data.takes_pauli_targets:
            circuit += stim.Circuit(f"{name} X{a}*Z{b}")
        else:
            circuit.append(name, [a, b] if data.is_two_qubit_gate else [a])
        if rng.random() < 0.2:
            circuit += stim.Circuit(f"MPP !X{a}*Y{b}")
        if circuit.num_measurements and rng.random() < 0.2:
            back = rng.randint(-circuit.num_measurements, -1)
            circuit += stim.Circuit(f"{rng.choice(['CX', 'CY', 'CZ'])} rec[{back}] {a}")
    return circuit


def determined(circuit: Any) -> dict[int, int]:
    """The outcomes that every run gives, by the number of the measurement."""
    runs = circuit.compile_sampler(seed=7).sample(64)
    fixed = np.flatnonzero((runs == runs[0]).all(axis=0))
    return {int(k): int(runs[0, k]) for k in fixed}


def test_determined_outcomes_of_random_circuits_are_those_of_stim(rng: random.Random) -> None:
    checked = 0
    for _ in range(300):
        circuit = random_circuit(rng, 5, 30)
        expected = determined(circuit)
        for row in measured(circuit, 3):
            assert {k: int(row[k]) for k in expected} == expected
        checked += len(expected)
    assert checked > 200


def test_parities_of_random_outcomes_are_those_of_stim(rng: random.Random) -> None:
    # Every parity of outcomes that Stim's samples share must hold in ours.
    for _ in range(20):
        circuit = random_circuit(rng, 4, 25)
        count = circuit.num_measurements
        theirs = circuit.compile_sampler(seed=3).sample(200).astype(np.uint8)
        ours = measured(circuit, 40)
        for _ in range(200):
            chosen = [k for k in range(count) if rng.random() < 0.3]
            parity = theirs[:, chosen].sum(axis=1) % 2
            if (parity == parity[0]).all():
                assert (ours[:, chosen].sum(axis=1) % 2 == parity[0]).all()


@pytest.mark.parametrize(
    ("text", "expected"),
    [
        ("X 0\nM 0 !0 1 !1", [1, 0, 0, 1]),
        ("H 0\nMX 0 !0", [0, 1]),
        ("H 0\nS 0\nMY 0 !0", [0, 1]),
        ("X 0\nMR 0 0 !0", [1, 0, 1]),
        ("RX 0\nMRX 0\nMX 0", [0, 0]),
        ("RY 1\nMRY !1\nMY 1", [1, 0]),
        ("H 0\nCX 0 1\nMXX 0 1\nMZZ 0 1\nMYY 0 1\nMYY !0 1\nMYY !0 !1", [0, 0, 1, 0, 1]),
        ("MPP Z0*Z1 !Z0 X0*X0 !X1*X1", [0, 1, 0, 1]),
        ("MPAD 0 1 1", [0, 1, 1]),
        ("X 0\nM 0\nCX rec[-1] 1\nM 1\nXCZ 3 rec[-1]\nM 3\nCZ rec[-1] rec[-2]", [1, 1, 1]),
        ("M 1\nREPEAT 3 {\n M !0\n X 0\n}", [0, 1, 0, 1]),
        ("REPEAT 3 {\n X 0\n M 0\n CX rec[-1] 1\n MR 1\n}", [1, 1, 0, 0, 1, 1]),
        (
            "M 0\nREPEAT 2 {\n X 1\n REPEAT 2 {\n M 1\n CX rec[-1] 0\n M 0\n }\n}",
            [0, 1, 1, 1, 0, 0, 0, 0, 0],
        ),
    ],
)  # fmt: skip
def test_outcomes_follow_in_the_order_of_the_circuit(text: str, expected: list[int]) -> None:
    circuit = stim.Circuit(text)
    assert measured(circuit, 2).tolist() == [expected] * 2


def test_random_outcomes_are_even_and_independent() -> None:
    shots = 4000
    rows = measured(stim.Circuit("H 0 1\nM 0 1"), shots).astype(int)
    for column in rows.T:
        assert_frequency(int(column.sum()), shots, 0.5)
        assert_frequency(int((column[1:] ^ column[:-1]).sum()), shots - 1, 0.5)
    assert_frequency(int((rows[:, 0] ^ rows[:, 1]).sum()), shots, 0.5)


def test_a_measured_state_is_left_as_stim_leaves_it() -> None:
    circuit = stim.Circuit("H 0\nCX 0 1\nH 2\nMPP X0*X1*Z2 Z0*Z1\nR 2\nRX 3")
    assert run_state(circuit)[1:] == stim_state(circuit)[1:]


def test_the_flag_of_a_measurement_is_its_number_plus_two() -> None:
    converted = nimbrel_stim.from_circuit(stim.Circuit("X 1\nM 0 1 2"))
    with nb.CliffordSimulator() as sim:
        sim.run(converted.program)
        assert sim.flags(converted.read_flags[0], 3) == 0b010


def test_a_long_repetition_is_written_at_once() -> None:
    circuit = stim.Circuit("REPEAT 200000 {\n X 0\n M 0\n}")
    row = measured(circuit, 1)[0]
    assert row.sum() == 100_000
    assert row[:4].tolist() == [1, 0, 1, 0]


def test_a_seed_repeats_random_outcomes_on_a_small_register() -> None:
    circuit = stim.Circuit("H 0 1 2\nX_ERROR(0.3) 3\nM 0 1 2 3")
    first, again, other = (measured(circuit, 50, seed=seed) for seed in (5, 5, 6))
    np.testing.assert_array_equal(first, again)
    assert (first != other).any()


def test_a_seed_for_random_outcomes_of_a_wide_register_is_refused() -> None:
    circuit = stim.Circuit("H 30\nX_ERROR(0.3) 0\nM 30 0")
    with pytest.raises(ValueError, match="1 outcomes are random without noise"):
        nimbrel_stim.sample(circuit, 1, seed=2)
    named = [measured(circuit, 40, seed=2, filter="StreamCliffordQPU")[:, 1] for _ in range(2)]
    np.testing.assert_array_equal(named[0], named[1])


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("H 0\nCX sweep[3] 0", "instruction 1 (CX): sweep[3] has no value here"),
        (
            "X 0\nREPEAT 5 {\n H 0\n CZ sweep[1] 0\n}",
            "instruction 1 (REPEAT): instruction 1 (CZ): sweep[1] has no value here",
        ),
        (
            "X 0\nELSE_CORRELATED_ERROR(0.1) X0",
            "instruction 1 (ELSE_CORRELATED_ERROR): it is not right behind an E or another one",
        ),
        (
            "REPEAT 1000000000 {\n H 0\n}",
            "instruction 0 (REPEAT): the circuit has more than 100000000 records",
        ),
    ],
)
def test_what_has_no_records_is_refused_by_index_and_name(text: str, message: str) -> None:
    with pytest.raises(ValueError, match="instruction") as raised:
        nimbrel_stim.from_circuit(stim.Circuit(text))
    assert str(raised.value) == message


def test_no_shots_give_no_rows() -> None:
    samples = nimbrel_stim.sample(stim.Circuit("X_ERROR(0.1) 0\nM 0\nDETECTOR rec[-1]"), 0)
    assert samples.measurements.shape == (0, 1)
    assert bits(samples.detectors, 1).shape == (0, 1)
    with pytest.raises(ValueError, match="shots must be 0 or more"):
        nimbrel_stim.sample(stim.Circuit("M 0"), -1)
