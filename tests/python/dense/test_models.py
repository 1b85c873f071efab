"""The models of the dense engine agree with each other and with known values."""

import math
import random
from fractions import Fraction

import numpy as np
import pytest

from models import dense
from models import matrices as full
from models.arithmetic import ROOT_HALF, Generator, fma
from models.opcodes import READ
from models.wire import tagged
from programs.dense import GATES, tidy_gate
from support.dense import amplitudes, random_state, reset_record, vector

QUBITS = 4


def dense_model(num_qubits: int = QUBITS, seed: int = 1) -> dense.DenseModel:
    model = dense.DenseModel(Generator(seed))
    model.run([reset_record(num_qubits)])
    return model


@pytest.mark.parametrize("low", GATES, ids=hex)
def test_every_gate_is_the_textbook_matrix(low: int, rng: random.Random) -> None:
    model = dense_model()
    for _ in range(20):
        state, gate = random_state(rng, QUBITS), tidy_gate(rng, low, QUBITS)
        model.load(amplitudes(state))
        model.run([gate])
        expected = full.gate_matrix(QUBITS, gate) @ state
        np.testing.assert_allclose(
            vector(model.terms), expected, rtol=0, atol=1e-9, err_msg=str(gate)
        )


def test_probabilities_are_the_textbook_ones(rng: random.Random) -> None:
    model = dense_model()
    for _ in range(50):
        state = random_state(rng, QUBITS)
        x, z, value = (rng.getrandbits(QUBITS) for _ in range(3))
        model.load(amplitudes(state))
        expected = full.probability_of_plus(state, x, z) if x | z else 0.0
        assert math.isclose(model.pauli_probability(x, z), expected, abs_tol=1e-12)
        expected = full.probability_of(state, value, z)
        assert math.isclose(model.peek_probability(value, z, 0.0), expected, abs_tol=1e-12)


def test_a_fused_step_rounds_once(rng: random.Random) -> None:
    for _ in range(2000):
        a, b, c = (rng.uniform(-1, 1) * 2.0 ** rng.randint(-40, 40) for _ in range(3))
        assert fma(a, b, c) == float(Fraction(a) * Fraction(b) + Fraction(c))
    tiny = 2.0**-30
    assert fma(1 + tiny, 1 - tiny, -1.0) == -(tiny**2)  # without fusing this is 0


@pytest.mark.parametrize(
    ("a", "b", "c", "sign"),
    [(0.0, -1.0, -0.0, -1.0), (0.0, 1.0, -0.0, 1.0), (1.0, 2.0, -2.0, 1.0)],
)
def test_a_fused_zero_has_the_sign_of_a_sum(a: float, b: float, c: float, sign: float) -> None:
    assert fma(a, b, c) == 0.0
    assert math.copysign(1.0, fma(a, b, c)) == sign


def test_the_generator_is_the_standard_twister() -> None:
    generator = Generator(5489)
    for _ in range(9999):
        generator.word()
    assert generator.word() == 4123659995  # the value that C++ requires of mt19937


def test_the_hadamard_factor_is_one_unit_low() -> None:
    assert math.nextafter(ROOT_HALF, 1.0) == math.sqrt(0.5)


def test_measuring_follows_the_probabilities() -> None:
    ones = 0
    for seed in range(400):
        model = dense_model(1, seed)
        model.load([(0.6, 0.0), (0.0, 0.8)])
        model.run([tagged(READ, target_mask=1, read_flag=2)])
        ones += model.flags.get(2)
    assert 220 < ones < 290  # 0.64 of 400 is 256, and the seeds are fixed
