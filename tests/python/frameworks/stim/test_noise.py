"""Noise instructions have the statistics of their channels."""

from __future__ import annotations

import itertools
from typing import Any

import numpy as np
import pytest

from support.stim_circuits import assert_frequency, bits, measured, nimbrel_stim, stim

SHOTS = 4000

# Bell pairs of the noisy qubits with others tell every Pauli error from every other: the two
# outcomes of a pair are the X part and the Z part of the error.
PAIR = {(0, 0): "I", (1, 0): "X", (1, 1): "Y", (0, 1): "Z"}


def errors(noise: str, seed: int) -> dict[str, int]:
    """How often each Pauli error struck the qubits 0 and 1."""
    circuit = stim.Circuit(f"H 2 3\nCX 2 0 3 1\n{noise}\nMZZ 0 2\nMXX 0 2\nMZZ 1 3\nMXX 1 3")
    counts: dict[str, int] = {}
    for row in measured(circuit, SHOTS, seed=seed, filter="StreamCliffordQPU")[:, -4:].tolist():
        name = PAIR[row[0], row[1]] + PAIR[row[2], row[3]]
        counts[name] = counts.get(name, 0) + 1
    return counts


PAIRS = ["".join(letters) for letters in itertools.product("IXYZ", repeat=2)]
PAULI_2 = [0.01 * k / 3 for k in range(1, 16)]
CHANNELS: dict[str, dict[str, float]] = {
    "X_ERROR(0.2) 0": {"XI": 0.2},
    "Y_ERROR(0.3) 1": {"IY": 0.3},
    "Z_ERROR(1) 0 1": {"ZZ": 1.0},
    "X_ERROR(0.25) 0 1": {"XI": 0.1875, "IX": 0.1875, "XX": 0.0625},
    "DEPOLARIZE1(0.3) 1": {"IX": 0.1, "IY": 0.1, "IZ": 0.1},
    "DEPOLARIZE2(0.45) 0 1": dict.fromkeys(PAIRS[1:], 0.03),
    "DEPOLARIZE2(0.45) 1 0": dict.fromkeys(PAIRS[1:], 0.03),
    "PAULI_CHANNEL_1(0.1, 0.2, 0.05) 0": {"XI": 0.1, "YI": 0.2, "ZI": 0.05},
    f"PAULI_CHANNEL_2({', '.join(map(str, PAULI_2))}) 0 1": dict(
        zip(PAIRS[1:], PAULI_2, strict=True)
    ),
    "E(0.2) X0 Y1": {"XY": 0.2},
    "E(0.2) X0\nELSE_CORRELATED_ERROR(0.5) Z0 Z1\nELSE_CORRELATED_ERROR(0.25) Y1": {
        "XI": 0.2,
        "ZZ": 0.4,
        "IY": 0.1,
    },
    "E(0.5) X0\nE(0.5) X0": {"XI": 0.5},
    "HERALDED_ERASE(0.4) 0": {"XI": 0.1, "YI": 0.1, "ZI": 0.1},
    "HERALDED_PAULI_CHANNEL_1(0.1, 0.2, 0.05, 0.15) 1": {"IX": 0.2, "IY": 0.05, "IZ": 0.15},
    "I_ERROR(0.5) 0\nII_ERROR(0.1) 0 1\nX_ERROR(0) 0": {},
    "REPEAT 2 {\n X_ERROR(0.2) 0\n}": {"XI": 0.32},
}


@pytest.mark.parametrize("noise", CHANNELS)
def test_errors_strike_with_the_probabilities_of_the_channel(noise: str) -> None:
    expected = CHANNELS[noise]
    found = errors(noise, seed=11)
    for name in PAIRS[1:]:
        assert_frequency(found.get(name, 0), SHOTS, expected.get(name, 0.0))


@pytest.mark.parametrize("name", ["M", "MX", "MY", "MR", "MRX", "MRY"])
def test_a_noisy_measurement_inverts_its_record_alone(name: str) -> None:
    basis = {"X": "RX", "Y": "RY"}.get(name[-1], "R")
    check = name[-1] if name[-1] in "XY" else ""
    circuit = stim.Circuit(f"{basis} 0\n{name}(0.2) 0 !0\nM{check} 0")
    rows = measured(circuit, SHOTS, seed=4, filter="StreamCliffordQPU").astype(int)
    assert_frequency(int(rows[:, 0].sum()), SHOTS, 0.2)
    assert_frequency(int((1 - rows[:, 1]).sum()), SHOTS, 0.2)
    assert_frequency(int((rows[:, 0] & (1 - rows[:, 1])).sum()), SHOTS, 0.04)
    assert not rows[:, 2].any()


@pytest.mark.parametrize(
    "name", ["MPP(0.2) Z0*Z1 Z70*Z1 !Z0", "MZZ(0.2) 0 1 70 1 !0 2", "MPAD(0.2) 0 0 1"]
)
def test_a_noisy_product_inverts_its_record_alone(name: str) -> None:
    rows = measured(stim.Circuit(f"{name}\nM 0 1 2 70"), SHOTS, seed=4).astype(int)
    for column, usual in zip(rows[:, :3].T, (0, 0, 1), strict=True):
        assert_frequency(int((column ^ usual).sum()), SHOTS, 0.2)
    assert not rows[:, 3:].any()


def test_feedback_sees_the_noisy_record() -> None:
    rows = measured(stim.Circuit("M(0.3) 0\nCX rec[-1] 1\nM 1"), SHOTS, seed=9).astype(int)
    np.testing.assert_array_equal(rows[:, 0], rows[:, 1])
    assert_frequency(int(rows[:, 0].sum()), SHOTS, 0.3)


def test_a_herald_tells_of_every_erasure() -> None:
    circuit = stim.Circuit("X 0\nHERALDED_ERASE(0.4) 0 1\nM 0 1")
    rows = measured(circuit, SHOTS, seed=2).astype(int)
    for qubit in (0, 1):
        assert_frequency(int(rows[:, qubit].sum()), SHOTS, 0.4)
        flipped = rows[:, 2 + qubit] ^ (1 - qubit)
        assert not (flipped & (1 - rows[:, qubit])).any()
        assert_frequency(int(flipped.sum()), SHOTS, 0.2)


def test_a_trajectory_is_a_program_that_stays_as_it_is() -> None:
    converted = nimbrel_stim.from_circuit(stim.Circuit("X_ERROR(1) 0\nM(1) 0\nM 0"))
    rng = np.random.default_rng(1)
    one, other = converted.trajectory(rng), converted.trajectory(rng)
    np.testing.assert_array_equal(one, other)
    assert (one != converted.program).any()


TASKS = [
    ("repetition_code:memory", 5),
    ("surface_code:rotated_memory_x", 3),
    ("surface_code:rotated_memory_z", 5),
    ("surface_code:unrotated_memory_z", 3),
]


def generated(task: str, distance: int, **noise: float) -> Any:
    return stim.Circuit.generated(task, rounds=4, distance=distance, **noise)


@pytest.mark.parametrize(("task", "distance"), TASKS)
def test_no_detector_of_a_code_without_noise_fires(task: str, distance: int) -> None:
    samples = nimbrel_stim.sample(generated(task, distance), 20)
    assert samples.detectors.shape[0] == samples.observables.shape[0] == 20
    assert not samples.detectors.any()
    assert not samples.observables.any()


@pytest.mark.parametrize(("task", "distance"), TASKS)
def test_detectors_of_a_noisy_code_fire_as_often_as_those_of_stim(task: str, distance: int) -> None:
    circuit = generated(
        task,
        distance,
        after_clifford_depolarization=0.02,
        before_round_data_depolarization=0.03,
        before_measure_flip_probability=0.02,
        after_reset_flip_probability=0.01,
    )
    shots, many = 1500, 200_000
    samples = nimbrel_stim.sample(circuit, shots, seed=3, filter="StreamCliffordQPU")
    detectors, observables = circuit.compile_detector_sampler(seed=3).sample(
        many, separate_observables=True
    )
    ours = bits(samples.detectors, circuit.num_detectors).sum(axis=0)
    for found, rate in zip(ours.tolist(), detectors.mean(axis=0).tolist(), strict=True):
        assert_frequency(found, shots, rate)
    flipped = int(bits(samples.observables, circuit.num_observables).sum())
    assert_frequency(flipped, shots, float(observables.mean()))


def test_the_same_seed_gives_the_same_detectors() -> None:
    circuit = generated("surface_code:rotated_memory_x", 3, before_measure_flip_probability=0.1)
    first, again = (
        nimbrel_stim.sample(circuit, 30, seed=8, filter="StreamCliffordQPU") for _ in range(2)
    )
    np.testing.assert_array_equal(first.detectors, again.detectors)
    assert first.detectors.any()
