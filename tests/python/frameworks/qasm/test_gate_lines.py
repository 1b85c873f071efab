"""Lines of plain gate calls are read without the parser, and mean the same."""

from __future__ import annotations

import random

import numpy as np
import pytest

from support.qasm_programs import HEADER, error_of, qasm


def spread_out(text: str) -> str:
    """The same program with a line break in each statement, which the parser reads."""
    return text.replace(" q[", "\nq[")


def plain_calls(rng: random.Random, count: int) -> str:
    angles = ["0.25", "-1.5e-3", "pi", "-pi/2", "3*pi/4", "2 * pi / 3", ".5", "7"]
    lines = []
    for _ in range(count):
        a, b = rng.sample(range(4), 2)
        gate = rng.choice(
            ["h q[{a}]", "rz({angle}) q[{a}]", "cx q[{a}], q[{b}]", "mine({angle}) q[{b}]"]
        )
        lines.append(gate.format(a=a, b=b, angle=rng.choice(angles)) + ";")
    return "\n".join(lines)


def test_a_line_means_what_the_parser_reads(rng: random.Random) -> None:
    text = f"{HEADER}gate mine(a) q {{ rx(a) q; }}\nqubit[4] q;\n{plain_calls(rng, 200)}\n"
    np.testing.assert_array_equal(qasm.loads(text).program, qasm.loads(spread_out(text)).program)


@pytest.mark.parametrize(
    "text",
    [
        "/* one\nh q[0];\n*/\nx q[1];",
        "// {\nx q[0];\n// }",
        "if (true)\nx q[0];\nif (false)\nx q[1];",
        "if (false) {\nx q[0];\n}\nx q[1];",
        "if (false) {\nx q[1];\n}\nelse\nx q[0];",
        "@keep {\nx q[0];",
        "pragma {\nx q[0];",
        "x\nq[0];",
        "for uint i in [0:2] {\nx q[0];\n}",
        "gate two a, b {\ncx a, b;\n}\ntwo q[0], q[1];",
        "ctrl @\nx q[0], q[1];",
        "def f(qubit[2] q) {\nx q[1];\n}\nf(q);",
    ],
)
def test_a_line_that_is_not_a_statement_of_its_own_is_left_to_the_parser(text: str) -> None:
    whole = f"{HEADER}qubit[2] q;\n{text}\n"
    # A line break before each semicolon keeps the lines from being taken out.
    apart = whole.replace("];", "]\n;")
    np.testing.assert_array_equal(qasm.loads(whole).program, qasm.loads(apart).program)


def test_a_call_between_an_if_and_its_else_is_refused() -> None:
    text = f"{HEADER}qubit[2] q;\nif (true) {{ }}\nx q[0];\nelse {{ }}\n"
    assert error_of(text) == "<text>:6:1: 'else' is not expected here"


@pytest.mark.parametrize(
    ("line", "message"),
    [
        (
            "foo q[0];",
            "the gate 'foo' is not defined; the standard gates need include \"stdgates.inc\"",
        ),
        ("x q[2];", "index 2 lies outside a register of 2"),
        ("x r[0];", "'r' is not defined"),
        ("x c[0];", "'c' is no qubit"),
        ("rx q[0];", "'rx' needs 1 angle(s), not 0"),
        ("cx q[1], q[1];", "a gate needs different qubits"),
        ("x w[0];", "a single qubit has no elements"),
    ],
)
def test_a_line_that_is_wrong_is_refused_with_its_place(line: str, message: str) -> None:
    text = f"{HEADER}qubit[2] q;\nqubit w;\nbit[2] c;\nh q[0];\n  {line}\n"
    assert error_of(text) == f"<text>:7:3: {message}"
