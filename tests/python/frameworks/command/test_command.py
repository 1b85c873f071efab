"""The command `nimbrel`: its output, its errors and its exit status."""

from __future__ import annotations

import json
import platform
import subprocess
import sys
from pathlib import Path
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

testing: Any = pytest.importorskip("click.testing")
arguments: Any = pytest.importorskip("nimbrel.command.arguments")
for package in ("qiskit", "openqasm3", "stim", "matplotlib"):
    pytest.importorskip(package)

BELL = """OPENQASM 3;
include "stdgates.inc";
qubit[2] q;
bit[2] c;
bit d;
h q[0];
cx q[0], q[1];
c = measure q;
d = c[0] ^ c[1];
"""
STIM = "X 0\nX_ERROR(0.25) 1\nM 0 1\nDETECTOR rec[-1]\nOBSERVABLE_INCLUDE(0) rec[-2]\n"


def run(*words: object) -> Any:
    return testing.CliRunner().invoke(arguments.command, [str(word) for word in words])


@pytest.fixture
def bell(tmp_path: Path) -> Path:
    path = tmp_path / "bell.qasm"
    path.write_text(BELL)
    return path


def test_run_counts_the_outcomes_of_the_classical_bits(bell: Path) -> None:
    found = run("run", bell, "--shots", "400", "--filter", "dense", "--seed", "3")
    lines = found.stdout.splitlines()
    assert (found.exit_code, found.stderr) == (0, "")
    assert lines[0].split() == ["d", "c", "shots", "share"]
    rows = [line.split() for line in lines[1:3]]
    assert [row[:2] for row in rows] == [["0", "00"], ["0", "11"]]
    assert sum(int(row[2]) for row in rows) == 400
    assert lines[3].startswith("400 shots in ")
    assert lines[3].endswith(" s on StreamQPU, because the caller named it")


def test_run_writes_json(bell: Path) -> None:
    found = json.loads(run("run", bell, "--shots", "50", "--json").stdout)
    assert found["shots"] == 50
    assert found["filter"] == "StreamCliffordQPU"
    assert found["registers"] == {"c": [2, 3], "d": [4]}
    assert set(found["counts"]) <= {"000", "011"}
    assert sum(found["counts"].values()) == 50
    assert found["reason"]


def test_a_seed_repeats_the_counts(bell: Path) -> None:
    first, again = (
        json.loads(run("run", bell, "--seed", "7", "--json").stdout)["counts"] for _ in range(2)
    )
    assert first == again


def test_many_outcomes_are_cut_to_the_most_frequent_ones(tmp_path: Path) -> None:
    path = tmp_path / "many.qasm"
    path.write_text(
        'OPENQASM 2.0; include "qelib1.inc"; qreg q[8]; creg c[8]; h q; measure q -> c;'
    )
    lines = run("run", path, "--shots", "5000").stdout.splitlines()
    assert len(lines) == 1 + 32 + 1 + 1
    assert "others" in lines[33]


def test_run_draws_a_picture(bell: Path, tmp_path: Path) -> None:
    picture = tmp_path / "counts.png"
    assert run("run", bell, "--plot", picture).exit_code == 0
    assert picture.read_bytes().startswith(b"\x89PNG")


def test_run_takes_stim_circuits(tmp_path: Path) -> None:
    path = tmp_path / "noisy.stim"
    path.write_text(STIM)
    found = json.loads(run("run", path, "--shots", "2000", "--seed", "1", "--json").stdout)
    assert found["registers"] == {"rec": [2, 3]}
    assert set(found["counts"]) == {"01", "11"}
    assert found["detectors"][0] == pytest.approx(0.25, abs=0.05)
    assert found["observables"] == [0.0]
    text = run("run", path, "--shots", "10").stdout
    assert "detectors fired in " in text
    assert "observables flipped in 0.00% of the shots" in text


@pytest.mark.parametrize("form", ["records", "words", "bytes"])
def test_run_takes_arrays_of_records(form: str, tmp_path: Path) -> None:
    records = nb.program(nb.reset(3), nb.x([0, 2]), nb.read([0, 1, 2], 2))
    stored: Any = np.array(records)
    if form != "records":
        stored = stored.view(np.uint64 if form == "words" else np.uint8).reshape(len(records), -1)
    path = tmp_path / "records.npy"
    np.save(path, stored)
    found = json.loads(run("run", path, "--json").stdout)
    assert found["counts"] == {"101": 1000}
    assert found["filter"] == "StreamBitQPU"


def test_show_lists_the_records_and_the_filter(bell: Path) -> None:
    lines = run("show", bell).stdout.splitlines()
    assert lines[0].split() == ["0", "reset", "2", "qubits"]
    assert lines[1].split()[:3] == ["1", "h", "q0"]
    assert "c: read flags 2 to 3" in lines
    assert lines[-1].startswith("runs on StreamCliffordQPU, because record 1 (h) is not classical")
    found = json.loads(run("show", bell, "--json").stdout)
    assert found["records"] == lines[: len(found["records"])]
    assert (found["qubits"], found["filter"]) == (2, "StreamCliffordQPU")


def test_show_names_the_filter_that_runs_a_stim_circuit(tmp_path: Path) -> None:
    path = tmp_path / "noisy.stim"
    path.write_text(STIM)
    last = run("show", path).stdout.splitlines()[-1]
    assert last == "runs on StreamCliffordQPU, because it is a Stim circuit"


def test_info_tells_about_the_machine() -> None:
    found = json.loads(run("info", "--json").stdout)
    assert found["version"] == nb.__version__
    assert found["record_format"] == nb.RECORD_FORMAT
    features = set(found["features"])
    if platform.machine() == "x86_64":
        assert {"avx", "fma", "popcnt"} <= features
        assert found["kernels"] == ("512-bit" if {"avx512f", "avx512dq"} <= features else "256-bit")
    else:
        assert found["kernels"] == "128-bit"
    assert found["memory_available"] > 2**20
    assert set(found["extras"]["stim"]) == {"stim"}
    text = run("info").stdout
    assert f"nimbrel    {nb.__version__}, record format 1" in text


@pytest.mark.parametrize(
    ("features", "bits"),
    [
        ([], 128),
        (["avx", "avx512f"], 256),
        (["avx", "avx512dq"], 256),
        (["avx", "avx512f", "avx512dq"], 512),
    ],
)
def test_the_kernels_need_both_features(features: list[str], bits: int) -> None:
    from nimbrel.command.info import kernel_bits

    assert kernel_bits(features) == bits


ERRORS = {
    "bad.qasm": (
        "OPENQASM 3;\nfoo q;\n",
        ":2:1: the gate 'foo' is not defined; the standard gates",
    ),
    "silent.qasm": ("OPENQASM 3;\nqubit q;\n", ": the program has no classical bits, so there are"),
    "bad.stim": ("FOO 0\n", ": Gate not found: 'FOO'"),
    "silent.stim": ("H 0\n", ": the circuit measures nothing, so there are no outcomes"),
    "bad.npy": ("not an array", ": "),
    "bad.txt": ("", ": the suffix is .txt, not .qasm, .stim or .npy"),
}


@pytest.mark.parametrize("name", ERRORS)
def test_a_file_that_cannot_be_run_is_an_error_with_status_2(name: str, tmp_path: Path) -> None:
    text, message = ERRORS[name]
    path = tmp_path / name
    path.write_text(text)
    found = run("run", path)
    assert (found.exit_code, found.stdout) == (2, "")
    assert found.stderr.startswith(f"Error: {path}{message}")


@pytest.mark.parametrize(
    ("array", "message"),
    [
        (np.zeros(3), "an array of dtype float64 and shape (3,) holds no records of 88 bytes"),
        (np.zeros((2, 88), np.uint8), "the first record of the program must be its reset"),
        (np.zeros((1, 2), nb.QPU_OP), "a program has one dimension, not 2"),
    ],
)
def test_an_array_that_is_no_program_is_refused(array: Any, message: str, tmp_path: Path) -> None:
    path = tmp_path / "records.npy"
    np.save(path, array)
    assert run("show", path).stderr == f"Error: {path}: {message}\n"


@pytest.mark.parametrize(
    ("words", "message"),
    [
        (["run", "none.qasm"], "File 'none.qasm' does not exist."),
        (["run"], "Missing argument 'FILE'."),
        (["paint"], "No such command 'paint'."),
    ],
)
def test_wrong_arguments_are_an_error_with_status_2(words: list[str], message: str) -> None:
    found = run(*words)
    assert (found.exit_code, found.stdout) == (2, "")
    assert message in found.stderr


@pytest.mark.parametrize("words", [("--shots", "0"), ("--filter", "best"), ("--seed", "-1")])
def test_wrong_options_are_an_error_with_status_2(words: tuple[str, str], bell: Path) -> None:
    found = run("run", bell, *words)
    assert (found.exit_code, found.stdout) == (2, "")
    assert f"Invalid value for '{words[0]}'" in found.stderr


@pytest.mark.parametrize(("name", "engine_name"), [("bit", "StreamBitQPU")])
def test_a_filter_on_which_a_record_means_something_else_is_refused(
    name: str, engine_name: str, bell: Path
) -> None:
    found = run("run", bell, "--filter", name)
    message = f"Error: record 1 (h) cannot be carried out exactly on {engine_name}\n"
    assert (found.exit_code, found.stderr) == (2, message)


def test_a_picture_of_an_unknown_format_is_an_error(bell: Path, tmp_path: Path) -> None:
    found = run("run", bell, "--plot", tmp_path / "counts.doc")
    assert (found.exit_code, found.stdout) == (2, "")
    assert "doc" in found.stderr


def process(*words: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [sys.executable, *words], capture_output=True, text=True, check=False, timeout=120
    )


def test_the_module_is_the_command(bell: Path) -> None:
    found = process("-m", "nimbrel", "run", str(bell), "--shots", "5", "--json")
    assert (found.returncode, found.stderr) == (0, "")
    assert json.loads(found.stdout)["shots"] == 5
    failed = process("-m", "nimbrel", "run", "none.qasm")
    assert (failed.returncode, failed.stdout) == (2, "")
    assert "does not exist" in failed.stderr


def test_without_click_the_command_says_what_to_install() -> None:
    code = "import sys; sys.modules['click'] = None; import nimbrel.command; nimbrel.command.main()"
    found = process("-c", code)
    message = "nimbrel: the command needs Click: pip install nimbrel[command]\n"
    assert (found.returncode, found.stdout, found.stderr) == (2, "", message)


@pytest.mark.parametrize(
    ("package", "statement", "message"),
    [
        ("stim", "import nimbrel.stim", "nimbrel.stim needs Stim: pip install nimbrel[stim]"),
        (
            "matplotlib",
            "import nimbrel.plot",
            "nimbrel.plot needs Matplotlib: pip install nimbrel[plot]",
        ),
        (
            "openqasm3",
            "from nimbrel import qasm; qasm.loads('qubit q;')",
            "nimbrel.qasm needs openqasm3: pip install nimbrel[qasm]",
        ),
        (
            "qiskit",
            "from nimbrel import qasm; qasm.loads('OPENQASM 2.0; qreg q[1];')",
            "nimbrel.qasm needs qiskit: pip install nimbrel[qasm]",
        ),
    ],
)
def test_a_missing_package_is_named_with_its_extra(
    package: str, statement: str, message: str
) -> None:
    found = process("-c", f"import sys; sys.modules[{package!r}] = None\n{statement}")
    assert found.stderr.splitlines()[-1] == f"ImportError: {message}"


def test_the_package_needs_none_of_the_extras() -> None:
    names = ["click", "matplotlib", "openqasm3", "qiskit", "stim", "tqdm"]
    code = f"import sys, nimbrel; print([name for name in {names} if name in sys.modules])"
    assert process("-c", code).stdout == "[]\n"
