"""While loops whose condition depends on measurements: they repeat while the program runs."""

from __future__ import annotations

import json
import math
from collections.abc import Callable
from pathlib import Path
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from support.qasm_programs import HEADER, qasm

COIN = "h q; c = measure q;"


def registers_of(statements: str, shots: int, **options: Any) -> dict[str, list[int]]:
    """The numbers in each classical register, shot by shot."""
    read = qasm.loads(HEADER + statements)
    bits = read.sample(shots, **options).bits().astype(np.int64)
    return {
        name: (bits[:, flags[0] - 2 : flags[-1] - 1] << np.arange(len(flags))).sum(axis=1).tolist()
        for name, flags in read.bits.items()
    }


def test_a_trial_repeats_until_it_succeeds() -> None:
    found = registers_of(
        """qubit[3] q; bit[2] trial = "11"; bit result;
        while (trial != 0) { reset q; h q[0]; h q[1]; x q[2]; trial = measure q[0:1]; }
        result = measure q[2];""",
        200,
    )
    assert not any(found["trial"])
    assert all(found["result"])


def test_a_measured_trial_repeats_until_it_succeeds() -> None:
    found = registers_of(f"qubit q; bit c; bit d; {COIN} while (!c) {{ {COIN} }} d = c;", 200)
    assert found == {"c": [1] * 200, "d": [1] * 200}


@pytest.mark.parametrize("filter_name", ["StreamQPU", "StreamSparseQPU"])
def test_the_number_of_repetitions_has_its_distribution(filter_name: str) -> None:
    shots = 4000
    found = registers_of(
        f"""qubit q; bit c; bit[8] counter; uint[8] n = 0; {COIN}
        while (!c) {{ n += 1; reset q; {COIN} }} counter = bit[8](n);""",
        shots,
        filter=filter_name,
        seed=11,
    )
    for number in range(6):
        share = 0.5 ** (number + 1)
        deviation = math.sqrt(shots * share * (1 - share))
        assert abs(found["counter"].count(number) - shots * share) < 5 * deviation


def test_a_seed_repeats_the_outcomes() -> None:
    read = qasm.loads(
        f"{HEADER}qubit q; bit c; bit[4] r; uint[4] n = 0; {COIN}"
        f" while (!c) {{ n += 1; {COIN} }} r = bit[4](n);"
    )
    first, second = (read.sample(100, seed=5).packed for _ in range(2))
    assert len(np.unique(first)) > 1
    np.testing.assert_array_equal(first, second)
    with pytest.raises(ValueError, match="Clifford filter cannot do this with a seed"):
        read.sample(1, filter="StreamCliffordQPU", seed=5)


@pytest.mark.parametrize("value", range(4))
def test_a_loop_repeats_as_often_as_its_number_says(value: int) -> None:
    # The inner loop adds 2 in each repetition of the outer one, and begins anew.
    flips = " ".join(f"x q[{bit}];" for bit in range(2) if value >> bit & 1)
    found = registers_of(
        f"""qubit[2] q; bit[2] c; bit[4] sum; {flips} c = measure q;
        uint[2] left = uint[2](c); uint[4] total = 0;
        while (left != 0) {{
          uint[2] inner = 2;
          while (inner != 0 && left != 0) {{ total += 1; inner -= 1; }}
          left -= 1;
        }}
        sum = bit[4](total);""",
        3,
    )
    assert found["sum"] == [2 * value] * 3


def test_a_loop_may_never_run() -> None:
    found = registers_of(
        """qubit[2] q; bit c; bit[3] r = "101"; bit last; c = measure q[0];
        while (c) { r = "010"; x q[1]; c = measure q[0]; } last = measure q[1];""",
        5,
    )
    assert found == {"c": [0] * 5, "r": [5] * 5, "last": [0] * 5}


CASES: dict[str, tuple[str, Callable[[int], int]]] = {
    "break": (
        "while (n != 0) { n -= 1; if (n == 1) { break; } r += 1; }",
        lambda v: min(v, 1) if v < 2 else v - 2,
    ),
    "break before a change": (
        "while (n != 0) { r = 9; if (n == 2) { break; } r = 3; n -= 1; }",
        lambda v: 0 if v == 0 else 9 if v > 1 else 3,
    ),
    "continue": (
        "while (n != 0) { n -= 1; if (n == 1) { continue; } r += 1; }",
        lambda v: v if v < 2 else v - 1,
    ),
    "break without a condition": ("while (n != 0) { r = 7; break; }", lambda v: 7 if v else 0),
    "break of a for loop inside": (
        "while (n != 0) { n -= 1; for uint i in [0:5] { if (i == 2) { break; } r += 1; } }",
        lambda v: 2 * v,
    ),
    "in a branch": (
        "if (n[0:0] == 1) { while (n != 0) { n -= 1; r += 1; } }",
        lambda v: v if v % 2 else 0,
    ),
    "in a for loop": (
        "for uint i in [0:1] { uint[4] m = n; while (m != 0) { m -= 1; r += i + 1; } }",
        lambda v: 3 * v,
    ),
    "a new bit in each repetition": (
        "while (n != 0) { bit b; if (n == 2) { b = 1; } if (b) { r += 1; } n -= 1; }",
        lambda v: int(v >= 2),
    ),
    "a bit that is 0 between repetitions": (
        "bit b; while (n != 0) { if (n == 2) { b = 1; } if (b) { r += 1; } b = 0; n -= 1; }",
        lambda v: int(v >= 2),
    ),
    "a known number that changes": (
        "uint[4] i = 1; while (n != 0) { r += i; i += 1; n -= 1; }",
        lambda v: v * (v + 1) // 2,
    ),
    "two variables that change places": (
        "uint[4] a = 1; uint[4] b = 2;"
        " while (n != 0) { uint[4] t = a; a = b; b = t; n -= 1; } r = a;",
        lambda v: 2 if v % 2 else 1,
    ),
    "a condition that becomes measured": (
        "bool more = true; while (more) { r += 1; more = n > r; }",
        lambda v: max(v, 1),
    ),
    "end": (
        "while (n != 0) { r += 1; out = bit[4](r); if (r == 2) { end; } n -= 1; }",
        lambda v: min(v, 2),
    ),
}


@pytest.mark.parametrize("case", CASES)
def test_statements_in_loops_do_what_they_do_elsewhere(case: str) -> None:
    statements, expected = CASES[case]
    statements = statements.replace("n[0:0]", "c[0]")
    for value in range(4):
        flips = " ".join(f"x q[{bit}];" for bit in range(2) if value >> bit & 1)
        found = registers_of(
            f"""qubit[2] q; bit[2] c; bit[4] out; {flips} c = measure q;
            uint[4] n = uint[4](c); uint[4] r = 0; {statements} out = bit[4](r);""",
            3,
        )
        assert found["out"] == [expected(value)] * 3, value


def test_a_subroutine_returns_out_of_a_loop() -> None:
    found = registers_of(
        """qubit[2] q; bit[4] out;
        def tries(qubit p) -> uint[4] {
          uint[4] n = 0; bit c = measure p;
          while (!c) { n += 1; if (n == 3) { return 9; } h p; c = measure p; }
          return n;
        }
        uint[4] a = tries(q[0]); out = bit[4](a);""",
        300,
    )
    assert set(found["out"]) == {1, 2, 9}


def test_a_wide_clifford_program_keeps_its_loops() -> None:
    found = registers_of(
        "qubit[70] q; bit c; bit d; h q[69]; c = measure q[69];"
        " while (!c) { h q[69]; c = measure q[69]; } cx q[69], q[0]; d = measure q[0];",
        20,
    )
    assert found == {"c": [1] * 20, "d": [1] * 20}


def test_an_open_simulator_runs_loops() -> None:
    with nb.SparseSimulator() as simulator:
        found = registers_of(
            f"qubit q; bit c; {COIN} while (!c) {{ {COIN} }}", 20, filter=simulator
        )
    assert found == {"c": [1] * 20}


def test_a_program_without_such_loops_is_sampled_at_once() -> None:
    read = qasm.loads(f"{HEADER} qubit q; bit c; {COIN}")
    assert read.back_jumps == ()
    samples = read.sample(1000, seed=1)
    np.testing.assert_array_equal(
        samples.packed, nb.sample(read.program, 1000, read_flags=read.read_flags, seed=1).packed
    )


def test_no_shots_give_no_outcomes() -> None:
    read = qasm.loads(f"{HEADER} qubit q; bit c; {COIN} while (!c) {{ {COIN} }}")
    assert read.sample(0).packed.shape == (0, 1)
    with pytest.raises(ValueError, match="shots must be 0 or more, not -1"):
        read.sample(-1)


def test_the_records_alone_are_refused_at_the_loop() -> None:
    read = qasm.loads(f"{HEADER}qubit q; bit c;\n{COIN}\n  while (!c) {{ {COIN} }}")
    with pytest.raises(qasm.QasmError) as raised:
        _ = read.program
    assert str(raised.value) == (
        "<text>:5:3: the condition of this while loop depends on a measurement, so the program is "
        "no sequence of records; its method sample runs it"
    )


def test_an_angle_that_changes_in_a_loop_is_refused() -> None:
    text = (
        f"{HEADER}qubit q; bit c; float a = 0; {COIN}\nwhile (!c) {{ rx(a) q; a += 0.5; {COIN} }}"
    )
    with pytest.raises(qasm.QasmError, match="'a' of type float was assigned under a condition"):
        qasm.loads(text)


def test_the_command_runs_and_shows_loops(tmp_path: Path) -> None:
    testing: Any = pytest.importorskip("click.testing")
    arguments: Any = pytest.importorskip("nimbrel.command.arguments")
    file = tmp_path / "coin.qasm"
    file.write_text(f"{HEADER}qubit q; bit c; {COIN} while (!c) {{ {COIN} }}")
    invoke = testing.CliRunner().invoke
    found = json.loads(
        invoke(arguments.command, ["run", str(file), "--shots", "40", "--json"]).stdout
    )
    assert found["counts"] == {"1": 40}
    jump = qasm.load(file).back_jumps[0]
    shown = json.loads(invoke(arguments.command, ["show", str(file), "--json"]).stdout)
    assert shown["back_jumps"] == [jump._asdict()]
    text = invoke(arguments.command, ["show", str(file)]).stdout
    position, flag, destination = jump
    line = f"before record {position}: back to record {destination} if read flag {flag} is 1"
    assert line in text.splitlines()
