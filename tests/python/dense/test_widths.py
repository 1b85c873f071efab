"""The kernels of both vector widths give the same bits.

The processor beside this one is emulated by qemu and has no 512-bit registers.
"""

import os
import random
import subprocess
import sys
from pathlib import Path
from types import ModuleType

import _lib_nb_sim
import numpy as np
import pytest

from programs.dense import gate_program, wild_program
from support.dense import (
    Setting,
    Vector,
    assert_same_bits,
    holed_state,
    open_dense,
    reset,
    to_array,
)
from support.emulator import EMULATOR, needs_emulator

pytestmark = needs_emulator

# Runs program k on state k, with the arrays of one file, and stores the new states in another.
EMULATED = """
import sys
import numpy as np
import _lib_nb_sim as engine

given = np.load(sys.argv[1])
new = {}
for k in sorted({name.split()[1] for name in given.files}):
    filter_ = engine.new_native_filter("StreamQPU")
    engine.setup_sim_params(filter_, *given["setting " + k].tolist())
    for name in ("reset ", "program "):
        engine.put_instructions(filter_, given[name + k], len(given[name + k]))
        if name == "reset ":
            engine.push_state(filter_, given["state " + k], 0)
    new[k] = np.empty_like(given["state " + k])
    engine.pull_state(filter_, new[k])
    engine.delete_native_filter(filter_)
np.savez(sys.argv[2], **new)
"""

SHAPES = [(1, 0), (2, 0), (3, 0), (4, 2), (5, 0), (6, 3), (8, 0), (9, 4), (11, 0), (12, 0), (17, 0)]


def run_emulated(folder: Path, arrays: dict[str, np.ndarray]) -> dict[str, Vector]:
    given, new = folder / "given.npz", folder / "new.npz"
    np.savez(given, **arrays)  # type: ignore[arg-type]  # the stubs see `allow_pickle` in a name
    command = [EMULATOR, "-cpu", "Haswell", sys.executable, "-c", EMULATED, str(given), str(new)]
    path = str(Path(_lib_nb_sim.__file__).parent)
    subprocess.run(
        command, check=True, env=os.environ | {"PYTHONPATH": path}, stderr=subprocess.PIPE
    )
    with np.load(new) as results:
        return dict(results)


def assert_same_values(got: Vector, expected: Vector) -> None:
    """The same bits, but for the sign and the payload of a not-a-number."""
    __tracebackhide__ = True
    parts, expected_parts = got.view(np.float64).copy(), expected.view(np.float64).copy()
    nan = np.isnan(expected_parts)
    assert (np.isnan(parts) == nan).all()
    parts[nan] = expected_parts[nan] = 0.0
    assert_same_bits(parts.view(np.complex128), expected_parts.view(np.complex128))


@pytest.mark.parametrize("seed", range(3))
def test_random_programs(engine: ModuleType, tmp_path: Path, seed: int) -> None:
    rng = random.Random(seed)
    arrays: dict[str, np.ndarray] = {}
    expected: dict[str, Vector] = {}
    for k, (qubits, block_qubits) in enumerate(SHAPES):
        state = holed_state(rng, qubits)
        parts = state.view(np.float64)
        parts[rng.randrange(len(parts))] = rng.choice((np.inf, -np.inf, 5e-324, 1e308))
        records = rng.choice((gate_program, wild_program))(rng, qubits, 60)
        with open_dense(engine, qubits, Setting(block_qubits, 1)) as filter_:
            filter_.load(state)
            filter_.run_records(records)
            expected[str(k)] = filter_.state(qubits)
        arrays |= {
            f"setting {k}": np.array([block_qubits, 0, 1, 0, 0, 1, 0]),
            f"reset {k}": reset(qubits),
            f"state {k}": state,
            f"program {k}": to_array(records),
        }
    got = run_emulated(tmp_path, arrays)
    for k, (qubits, block_qubits) in enumerate(SHAPES):
        print(f"{qubits} qubits, blocks of {block_qubits}")
        assert_same_values(got[str(k)], expected[str(k)])
