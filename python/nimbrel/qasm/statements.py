"""Statements of OpenQASM 3 as records."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any, Final

from openqasm3 import ast

from nimbrel.qasm import control_flow, gates, subroutines, variables
from nimbrel.qasm.context import Context
from nimbrel.qasm.expressions import evaluate, known_integer
from nimbrel.qasm.gate_lines import PlainCall, run_plain_call
from nimbrel.qasm.operands import qubits_of
from nimbrel.qasm.parsing import parse
from nimbrel.qasm.scope import DefinedGate, Extern, Qubits, Subroutine
from nimbrel.qasm.standard_gates import QELIB1, STDGATES
from nimbrel.qasm.values import Variable

Rule = Callable[[Context, Any], None]

_LIBRARIES: Final = {"stdgates.inc": STDGATES, "qelib1.inc": QELIB1}
_MOST_QUBITS: Final = 1 << 24


def run_statements(context: Context, statements: Sequence[Any]) -> None:
    """Carry out statements.

    Raises:
        QasmError: At the first one that is refused.
    """
    for statement in statements:
        rule = _RULES.get(type(statement))
        if rule is None:
            raise context.error(
                statement, f"{_words(type(statement).__name__)} has no form in this system"
            )
        if context.gate_body is not None and type(statement) not in _IN_GATES:
            raise context.error(
                statement, f"a gate's body cannot have {_words(type(statement).__name__)}"
            )
        rule(context, statement)


def _words(class_name: str) -> str:
    spaced = "".join(f" {letter.lower()}" if letter.isupper() else letter for letter in class_name)
    return f"the statement '{spaced.strip()}'"


def _declare_qubits(context: Context, node: ast.QubitDeclaration) -> None:
    name = node.qubit.name
    variables.check_new(context, node, name)
    if context.physical:
        raise context.error(node, "a program has either physical qubits or declared ones")
    context.physical = False
    size = 1 if node.size is None else known_integer(context, node.size, "a register's size")
    if not 0 < size <= _MOST_QUBITS:
        raise context.error(node, f"a register cannot have {size} qubits")
    qubits = Qubits(context.new_qubits(size), node.size is not None)
    context.registers[name] = qubits
    context.scopes.add(name, qubits)


def _define_gate(context: Context, node: ast.QuantumGateDefinition) -> None:
    variables.check_new(context, node, node.name.name)
    context.scopes.add(node.name.name, DefinedGate(node, context.file))


def _define_subroutine(context: Context, node: ast.SubroutineDefinition) -> None:
    variables.check_new(context, node, node.name.name)
    context.scopes.add(node.name.name, Subroutine(node, context.file))


def _declare_extern(context: Context, node: ast.ExternDeclaration) -> None:
    context.scopes.add(node.name.name, Extern())


def _include(context: Context, node: ast.Include) -> None:
    library = _LIBRARIES.get(node.filename)
    if library is not None:
        for name, gate in library.items():
            context.scopes.add(name, gate)
        return
    if context.folder is None:
        raise context.error(node, f"'{node.filename}' is looked for beside a file; read it by load")
    path = context.folder / node.filename
    try:
        text = Path(path).read_text(encoding="utf-8")
    except (OSError, UnicodeDecodeError) as error:
        raise context.error(node, f"'{node.filename}' cannot be read: {error}") from None
    if len(context.included) >= _MOST_INCLUDED:
        raise context.error(node, f"more than {_MOST_INCLUDED} files are included")
    context.included.append(str(path))
    with context.in_file(str(path)):
        run_statements(context, parse(text, str(path)))


_MOST_INCLUDED: Final = 1000


def _measure(context: Context, node: ast.QuantumMeasurementStatement) -> None:
    target: Any = node.target
    qubits = qubits_of(context, node.measure.qubit)
    if target is None:
        context.measure(node, qubits.numbers, context.records.new_flags(len(qubits.numbers)))
        return
    indexed = isinstance(target, ast.IndexedIdentifier)
    variable = variables.assignable(context, node, target.name.name if indexed else target.name)
    if variable.kind.name != "bit":
        raise context.error(node, f"a measurement gives bits, not a value of type {variable.kind}")
    variables.measure_into(context, node, variable, target.indices if indexed else [], qubits)


def _reset(context: Context, node: ast.QuantumReset) -> None:
    context.records.clear(qubits_of(context, node.qubits).numbers)


def _ignore(_context: Context, _node: Any) -> None:
    """Do nothing: the statement has no effect on a simulated state."""


def _alias(context: Context, node: ast.AliasStatement) -> None:
    # An alias of bits would need two names for one variable; of qubits it is a list of numbers.
    name = node.target.name
    entry = context.scopes.find(_first_name(node.value))
    if isinstance(entry, Variable):
        raise context.error(node, f"'{name}' is an alias of classical bits, which is not read")
    context.scopes.add(name, qubits_of(context, node.value))


def _first_name(node: Any) -> str:
    while not isinstance(node, ast.Identifier):
        node = node.lhs if isinstance(node, ast.Concatenation) else getattr(
            node, "collection", getattr(node, "name", None))  # fmt: skip
        if node is None:
            return ""
    return node.name


def _expression(context: Context, node: ast.ExpressionStatement) -> None:
    call = node.expression
    if isinstance(call, ast.FunctionCall):
        entry = context.scopes.find(call.name.name)
        if isinstance(entry, Subroutine):
            subroutines.call(context, entry, call)
            return
    evaluate(context, call)


def _block(context: Context, node: Any) -> None:
    with context.scopes.block():
        run_statements(context, node.body if isinstance(node, ast.Box) else node.statements)


_RULES: Final[dict[type, Rule]] = {
    PlainCall: run_plain_call,
    ast.QuantumGate: gates.call_gate,
    ast.QuantumPhase: gates.phase,
    ast.QuantumMeasurementStatement: _measure,
    ast.QuantumReset: _reset,
    ast.QuantumBarrier: _ignore,
    ast.DelayInstruction: _ignore,
    ast.Pragma: _ignore,
    ast.Box: _block,
    ast.CompoundStatement: _block,
    ast.QubitDeclaration: _declare_qubits,
    ast.QuantumGateDefinition: _define_gate,
    ast.SubroutineDefinition: _define_subroutine,
    ast.ExternDeclaration: _declare_extern,
    ast.Include: _include,
    ast.AliasStatement: _alias,
    ast.ExpressionStatement: _expression,
    ast.ClassicalDeclaration: variables.declare,
    ast.ConstantDeclaration: variables.declare_constant,
    ast.IODeclaration: variables.declare_input,
    ast.ClassicalAssignment: variables.assignment,
    ast.BranchingStatement: control_flow.branch,
    ast.SwitchStatement: control_flow.switch,
    ast.ForInLoop: control_flow.for_loop,
    ast.WhileLoop: control_flow.while_loop,
    ast.BreakStatement: control_flow.break_,
    ast.ContinueStatement: control_flow.continue_,
    ast.EndStatement: control_flow.end,
    ast.ReturnStatement: subroutines.return_,
}
_IN_GATES: Final = frozenset(
    {
        *(ast.QuantumGate, ast.QuantumPhase, ast.QuantumBarrier, ast.DelayInstruction),
        *(ast.ForInLoop, ast.BranchingStatement, ast.CompoundStatement, PlainCall),
    }
)
