"""On a processor without the instructions that the engine needs, its import fails with a message.

The tests emulate such processors with qemu, which stops a program at a missing instruction.
"""

import os
import subprocess
import sys
from pathlib import Path

import _lib_nb_sim
import pytest

from support.emulator import EMULATOR, needs_emulator

LOAD = """
try:
    import _lib_nb_sim
except ImportError as error:
    print(error)
else:
    print("loaded")
"""

REFUSAL = "_lib_nb_sim needs a processor with AVX, FMA and POPCNT; this one is without{}\n"

pytestmark = needs_emulator


def load_on(processor: str, folder: Path) -> subprocess.CompletedProcess[str]:
    """Imports the engine on a processor of qemu. A fake NumPy prints when it is imported."""
    numpy = folder / "numpy"
    if not numpy.exists():
        numpy.mkdir()
        (numpy / "__init__.py").write_text("raise SystemExit('NumPy came first')")
    path = os.pathsep.join((str(folder), str(Path(_lib_nb_sim.__file__).parent)))
    return subprocess.run(
        [EMULATOR, "-cpu", processor, sys.executable, "-c", LOAD],
        capture_output=True,
        text=True,
        check=False,
        env=os.environ | {"PYTHONPATH": path},
    )


@pytest.mark.parametrize(
    ("processor", "missing"),
    [
        pytest.param("Nehalem", " AVX FMA", id="popcnt-alone"),
        pytest.param("Conroe", " AVX FMA POPCNT", id="none"),
        pytest.param("Haswell,-fma", " FMA", id="no-fma"),
        pytest.param("Haswell,-popcnt", " POPCNT", id="no-popcnt"),
        pytest.param("Haswell,-avx", " AVX FMA", id="no-avx"),
        # The operating system does not save the wide registers.
        pytest.param("Haswell,-xsave", " AVX FMA", id="no-saved-state"),
    ],
)
def test_the_error_names_what_is_missing(tmp_path: Path, processor: str, missing: str) -> None:
    process = load_on(processor, tmp_path)
    assert (process.stdout, process.returncode) == (REFUSAL.format(missing), 0), process.stderr


def test_a_processor_with_all_of_them_goes_on_to_numpy(tmp_path: Path) -> None:
    process = load_on("Haswell", tmp_path)
    assert "NumPy came first" in process.stderr
