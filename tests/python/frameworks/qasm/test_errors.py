"""Errors name the file, the line and the column."""

from __future__ import annotations

from pathlib import Path

import pytest

from support.qasm_programs import HEADER, HEADER2, error_of, qasm

STATEMENTS = {
    "foo q[0];": "the gate 'foo' is not defined; the standard gates need include \"stdgates.inc\"",
    "h q[2];": "index 2 lies outside a register of 2",
    "h q[-3];": "index -3 lies outside a register of 2",
    "h p;": "'p' is no qubit",
    "h w;": "'w' is not defined",
    "cx q[0], q[0];": "a gate needs different qubits",
    "cx q[0];": "'cx' needs 2 qubit(s), not 1",
    "rx q[0];": "'rx' needs 1 angle(s), not 0",
    "rx(c) q[0];": "a gate's angle depends on a measurement, so it is not known",
    "cx q, u;": "registers of 2 and 3 qubits",
    "qubit q;": "'q' is already defined",
    "c = measure u;": "3 qubits do not fit 2 bits",
    "const uint k = 2; k = 3;": "'k' is a constant",
    "int[8] n = 1.5 / 0;": "1.5 / 0: division by zero",
    "angle[4] a = 1e999;": "an angle cannot be inf",
    "angle a = 1e999;": "an angle cannot be inf",
    f"float f = {'9' * 400};": "int too large to convert to float",
    "qubit[1e999] r;": "a register's size must be an integer that is known before the run",
    "uint[4] n = c + 1; rx(n) q[0];": "a gate's angle depends on a measurement, so it is not known",
    "float f; if (c[0]) { f = 1; } rx(f) q;": (
        "'f' of type float was assigned under a condition that depends on a measurement"
    ),
    "while (true) { }": "the while loop does not end: it changes no variable",
    "int n; while (n < 9) { if (n < 5) { n += 1; } x q; }": (
        "the while loop does not end: it changes no variable"
    ),
    "int n; while (true) { n = 1 - n; }": "the while loop has more than 1000000 repetitions",
    "for uint i in [0:9] { if (c[0]) { break; } }": (
        "a break under a condition that depends on a measurement"
    ),
    "extern f(int) -> int; int n = f(2);": "the extern function 'f' has no body that could run",
    "input float a;": "the input 'a' needs a value: inputs={'a': ...}",
    'include "other.inc";': "'other.inc' is looked for beside a file; read it by load",
    "let b = c[0:1];": "'b' is an alias of classical bits, which is not read",
    "defcal x $0 { }": "the statement 'calibration definition' has no form in this system",
    "x $0;": "a program has either physical qubits or declared ones",
    "gate g a { measure a; }": None,
    "gate g a { h q; } g q[0];": "the gate's body does not see the qubits 'q'",
    "gate g a { g a; } g q[0];": "the gate 'g' calls itself",
    "def f(qubit a) { f(a); } f(q[0]);": "more than 100 calls of subroutines are nested",
    "int n = 1; gate g a { rx(n) a; } g q[0];": (
        "gates and subroutines do not see 'n', a variable that is no const"
    ),
    'bit[3] b = "01";': "a value of type bit[2] cannot become a value of type bit[3]",
}


@pytest.mark.parametrize("statement", STATEMENTS)
def test_a_statement_that_is_refused_is_named_with_its_place(statement: str) -> None:
    before = f"{HEADER}qubit[2] q; qubit[3] u; bit[2] c;\nh q; c = measure q;\n\n  "
    text = error_of(before + statement)
    message = STATEMENTS[statement]
    if message is not None:
        assert text.partition(": ")[2] == message
    assert text.startswith("<text>:6:")
    column = int(text.split(":")[2])
    assert 3 <= column <= 3 + len(statement)


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("OPENQASM 4.0;", "<text>:1:10: OpenQASM 4 is not read"),
        ("OPENQASM 3;\nqubit[2 q;", "<text>:2:9: 'q' is not expected here"),
        ("qubit q;\n x @ q $;", "<text>:2:8: token recognition error at: '$;'"),
        ("qubit q;\nif (true) {", "<text>:2:12: the end of the text is not expected here"),
        (f"{HEADER2}qreg q[2];\n  foo q[0];", "<text>:4:3: 'foo' is not defined in this scope"),
        (
            "OPENQASM 2.0;\nqreg q[2]\nx q;",
            "<text>:3:1: needed ';', but instead saw an identifier",
        ),
        (
            f"{HEADER2}qreg q[2];\nopaque magic(a) b; // magic\n  magic(0.3) q[0];",
            "<text>:5:3: the opaque gate 'magic' has no body that could run",
        ),
    ],
)
def test_a_text_that_is_not_openqasm_is_refused_with_its_place(text: str, message: str) -> None:
    assert error_of(text) == message


def test_the_parser_prints_nothing(capsys: pytest.CaptureFixture[str]) -> None:
    error_of("qubit q;\n x @ q $;")
    assert capsys.readouterr() == ("", "")


def test_an_error_in_a_file_names_the_file(tmp_path: Path) -> None:
    (tmp_path / "mine.inc").write_text("gate good a { }\n gate bad a { foo a; }\n")
    program = tmp_path / "program.qasm"
    program.write_text('OPENQASM 3;\ninclude "mine.inc";\nqubit q;\ngood q;\nbad q;\n')
    with pytest.raises(qasm.QasmError) as raised:
        qasm.load(program)
    error = raised.value
    assert (error.file, error.line, error.column) == (str(tmp_path / "mine.inc"), 2, 15)
    assert str(error).startswith(f"{tmp_path / 'mine.inc'}:2:15: the gate 'foo' is not defined")


def test_a_missing_include_and_one_that_includes_itself_are_refused(tmp_path: Path) -> None:
    program = tmp_path / "program.qasm"
    program.write_text('OPENQASM 3;\ninclude "program.qasm";\n')
    with pytest.raises(qasm.QasmError, match=r"more than 1000 files|nested too deeply"):
        qasm.load(program)
    program.write_text('OPENQASM 3;\ninclude "none.inc";\n')
    with pytest.raises(qasm.QasmError, match=r":2:1: 'none.inc' cannot be read"):
        qasm.load(program)


def test_openqasm_2_includes_files_beside_the_program(tmp_path: Path) -> None:
    (tmp_path / "mine.inc").write_text("gate flip a { x a; }\n")
    program = tmp_path / "program.qasm"
    program.write_text(f'{HEADER2}include "mine.inc";\nqreg q[1]; flip q[0];')
    assert len(qasm.load(program).program) == 2
