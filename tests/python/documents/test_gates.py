"""The gate matrices of docs/records.md are those of the engine and of the textbook."""

from __future__ import annotations

import re
from pathlib import Path

import nimbrel as nb
import numpy as np
import pytest

from models import matrices as full
from models import opcodes
from models.matrices import Matrix
from models.wire import TAG, tagged
from programs.dense import GATES
from support.program_check import AmplitudeSimulator

RECORDS = Path(__file__).parents[3] / "docs" / "records.md"
ROW = re.compile(r"^\| (?P<opcodes>[0-9A-F, ]+) \| [^|`]+ \|(?P<cells>( `[^`]+` \|){4})$", re.M)
FUNCTIONS = {"sqrt": np.sqrt, "cos": np.cos, "sin": np.sin, "exp": np.exp, "pi": np.pi, "i": 1j}
ANGLES = [30.0, -75.0, 90.0, 180.0, 400.0]
SIMULATORS = [nb.DenseSimulator, nb.SparseSimulator]


def documented_matrices() -> dict[int, list[str]]:
    """The four elements of every gate's matrix as the document writes them, row by row."""
    text = RECORDS.read_text(encoding="utf-8")
    return {
        int(opcode, 16): re.findall("`([^`]+)`", row["cells"])
        for row in ROW.finditer(text)
        for opcode in row["opcodes"].split(", ")
    }


DOCUMENTED = documented_matrices()


def documented_matrix(low: int, degrees: float) -> Matrix:
    names = {**FUNCTIONS, "a": degrees * np.pi / 180}
    elements = [eval(element, {"__builtins__": {}}, names) for element in DOCUMENTED[low]]
    return np.array(elements, dtype=np.complex128).reshape(2, 2)


def matrix_of(simulator: AmplitudeSimulator, num_qubits: int, *gate: np.ndarray) -> Matrix:
    """The engine's matrix of a gate. Column k is the image of basis state k."""
    matrix = np.zeros((1 << num_qubits, 1 << num_qubits), dtype=np.complex128)
    with simulator() as sim:
        for column in range(1 << num_qubits):
            sim.run(nb.reset(num_qubits), nb.write(range(num_qubits), column), *gate)
            indices, amplitudes = sim.terms()
            matrix[indices.astype(np.int64), column] = amplitudes
    return matrix


def assert_same(actual: Matrix, expected: Matrix) -> None:
    np.testing.assert_allclose(actual, expected, rtol=0, atol=1e-12)


def test_every_gate_on_one_qubit_has_a_matrix() -> None:
    assert set(DOCUMENTED) == set(GATES) - {opcodes.SWAP, opcodes.PPR}


@pytest.mark.parametrize("simulator", SIMULATORS)
@pytest.mark.parametrize("low", DOCUMENTED, ids=hex)
def test_the_engine_applies_the_matrix(low: int, simulator: AmplitudeSimulator) -> None:
    for degrees in ANGLES:
        gate = nb.record(TAG << 32 | low, target_mask=1, angle=degrees)
        assert_same(matrix_of(simulator, 1, gate), documented_matrix(low, degrees))


@pytest.mark.parametrize("low", DOCUMENTED, ids=hex)
def test_the_matrix_is_the_textbook_one(low: int) -> None:
    for degrees in ANGLES:
        gate = tagged(low, target_mask=1, angle=degrees)
        assert_same(documented_matrix(low, degrees), full.one_qubit_matrix(gate))


@pytest.mark.parametrize("simulator", SIMULATORS)
@pytest.mark.parametrize("degrees", ANGLES)
def test_a_pauli_rotation_of_z_takes_half_the_angle_of_rz(
    simulator: AmplitudeSimulator, degrees: float
) -> None:
    rotation = matrix_of(simulator, 1, nb.ppr(degrees, (), 0))
    assert_same(rotation, matrix_of(simulator, 1, nb.rz(2 * degrees, 0)))


def test_rz_is_a_phase_but_for_the_phase_of_the_whole_state() -> None:
    turn = np.exp(-0.5j * np.deg2rad(50.0))
    assert_same(
        matrix_of(nb.DenseSimulator, 1, nb.rz(50.0, 0)),
        turn * matrix_of(nb.DenseSimulator, 1, nb.phase(50.0, 0)),
    )


@pytest.mark.parametrize(
    "products",
    [
        [((), (0,))],
        [((), (0,)), ((1,), ())],
        [((0,), (0, 1)), ((2,), (2,))],
        [((), (0,)), ((1,), (1,)), ((2,), ())],
        [((0,), ()), ((), (1,)), ((2,), (2,)), ((), (3,))],
    ],
    ids=lambda products: f"{len(products)} products",
)
def test_a_batch_reverses_the_states_in_which_each_product_is_minus_one(
    products: list[tuple[tuple[int, ...], tuple[int, ...]]],
) -> None:
    count, num_qubits = len(products), 4
    identity: Matrix = np.eye(1 << num_qubits, dtype=np.complex128)
    projector = identity
    for xs, zs in products:
        x_mask, z_mask = (sum(1 << qubit for qubit in qubits) for qubits in (xs, zs))
        minus = (identity - full.pauli_product(num_qubits, x_mask, z_mask)) / 2
        projector = projector @ minus
    theta = np.pi / 2**count
    expected = np.exp(-1j * (-1) ** count * theta) * (identity - 2 * projector)
    batch = [nb.pcp(k, count, xs, zs) for k, (xs, zs) in enumerate(products)]
    assert_same(matrix_of(nb.DenseSimulator, num_qubits, *batch), expected)


def test_a_batch_of_z_and_x_is_a_cnot() -> None:
    batch = matrix_of(nb.DenseSimulator, 2, nb.pcp(0, 2, (), 0), nb.pcp(1, 2, 1, ()))
    cnot = matrix_of(nb.DenseSimulator, 2, nb.x(1, controls=0))
    assert_same(batch, np.exp(-0.25j * np.pi) * cnot)
