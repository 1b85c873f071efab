"""A text without a statement is a program of no qubits."""

from __future__ import annotations

import pytest

from support.qasm_programs import qasm


@pytest.mark.parametrize("text", ["", " \n", "// a comment", "/* two\nlines */ // end\n"])
def test_a_text_without_a_token_is_an_empty_program(text: str) -> None:
    read = qasm.loads(text)
    assert read.num_qubits == 0
    assert read.program.tobytes() == qasm.loads("OPENQASM 3;").program.tobytes()


def test_a_comment_that_does_not_end_is_refused() -> None:
    with pytest.raises(qasm.QasmError):
        qasm.loads("/* comment")
