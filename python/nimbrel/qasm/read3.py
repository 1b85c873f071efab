"""Reads OpenQASM 3."""

from __future__ import annotations

from collections.abc import Mapping
from contextlib import suppress
from functools import partial
from pathlib import Path

from nimbrel.qasm import subroutines
from nimbrel.qasm.branches import LeavesBranchError
from nimbrel.qasm.context import Context
from nimbrel.qasm.flag_numbers import FIRST_FLAG
from nimbrel.qasm.operands import qubits_of
from nimbrel.qasm.parsing import parse
from nimbrel.qasm.qasm_program import QasmProgram
from nimbrel.qasm.statements import run_statements
from nimbrel.qasm.variables import store_constants


def read3(text: str, file: str, folder: Path | None, inputs: Mapping[str, float]) -> QasmProgram:
    """Read an OpenQASM 3 program.

    Args:
        text: The program.
        file: Its name in errors.
        folder: Where included files are looked for, or None.
        inputs: The values of input variables.

    Raises:
        QasmError: If the text is not OpenQASM 3, or a statement has no form in this system.
    """
    context = Context(file, folder, inputs)
    context.run_block = partial(run_statements, context)
    context.call_subroutine = partial(subroutines.call, context)
    context.qubits = partial(qubits_of, context)
    with suppress(LeavesBranchError):
        run_statements(context, parse(text, file))
    store_constants(context)
    if context.end_label is not None:
        context.records.label(context.end_label)
    finished = context.records.finish(context.num_qubits, context.num_flags)
    return QasmProgram(
        finished.records,
        context.num_qubits,
        {name: _as_range(qubits.numbers) for name, qubits in context.registers.items()},
        {variable.name: _as_range(variable.flags) for variable in context.outputs},
        finished.back_jumps,
        finished.loop_place,
    )


def _as_range(numbers: object) -> range:
    assert isinstance(numbers, range | list)
    return range(numbers[0], numbers[-1] + 1)


__all__ = ["FIRST_FLAG", "read3"]
