"""Calls of gates in OpenQASM 3: operands, modifiers and definitions."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from typing import Any, Final

from openqasm3 import ast

from nimbrel.opcodes import Opcode
from nimbrel.qasm.context import Context
from nimbrel.qasm.expressions import known_integer, known_number
from nimbrel.qasm.gate_calls import GateCall, controlled, degrees_of, inverse, placed, power
from nimbrel.qasm.operands import qubits_of
from nimbrel.qasm.scope import DefinedGate, Qubits
from nimbrel.qasm.standard_gates import StandardGate
from nimbrel.qasm.values import Kind, Variable

_MOST_NESTED: Final = 100


def call_gate(context: Context, node: ast.QuantumGate) -> None:
    """Carry out a call of a gate.

    Raises:
        QasmError: If there is no such gate, or the call does not fit it.
    """
    gate = _gate(context, node)
    angles = tuple(known_number(context, each, "a gate's angle") for each in node.arguments)
    _check_count(context, node, "angle", _num_parameters(gate), len(angles))
    operands = [qubits_of(context, each) for each in node.qubits]
    num_controls = _num_controls(context, node)
    _check_count(context, node, "qubit", _num_qubits(gate) + num_controls, len(operands))
    calls = _modified(context, node, _expanded(context, node, gate, angles, first=num_controls))
    for qubits in _broadcast(context, node, operands):
        emit(context, calls, qubits)


def phase(context: Context, node: ast.QuantumPhase) -> None:
    """Carry out a gphase.

    Raises:
        QasmError: If the controls do not fit the modifiers.
    """
    angle = GateCall(Opcode.PHASE, degrees_of(known_number(context, node.argument, "a phase")), ())
    operands = [qubits_of(context, each) for each in node.qubits]
    _check_count(context, node, "qubit", _num_controls(context, node), len(operands))
    calls = _modified(context, node, [angle])
    for qubits in _broadcast(context, node, operands):
        emit(context, calls, qubits)


def emit(context: Context, calls: Iterable[GateCall], qubits: Sequence[int]) -> None:
    """Add operations on the places 0, 1, ... of some qubits."""
    made = placed(calls, qubits)
    if context.gate_body is not None:
        context.gate_body += made
    else:
        context.records.gates(made)


def _gate(context: Context, node: ast.QuantumGate) -> StandardGate | DefinedGate:
    name = node.name.name
    entry = context.scopes.find(name)
    if isinstance(entry, StandardGate | DefinedGate):
        return entry
    if entry is not None:
        raise context.error(node, f"'{name}' is no gate")
    raise context.error(
        node, f"the gate '{name}' is not defined; the standard gates need include \"stdgates.inc\""
    )


def _num_parameters(gate: StandardGate | DefinedGate) -> int:
    return gate.parameters if isinstance(gate, StandardGate) else len(gate.node.arguments)


def _num_qubits(gate: StandardGate | DefinedGate) -> int:
    return gate.qubits if isinstance(gate, StandardGate) else len(gate.node.qubits)


def _check_count(context: Context, node: Any, what: str, needed: int, given: int) -> None:
    if needed != given:
        name = node.name.name if isinstance(node, ast.QuantumGate) else "gphase"
        raise context.error(node, f"'{name}' needs {needed} {what}(s), not {given}")


def _expanded(
    context: Context,
    node: ast.QuantumGate,
    gate: StandardGate | DefinedGate,
    angles: tuple[float, ...],
    *,
    first: int,
) -> list[GateCall]:
    """The operations of a gate on the places from `first` on."""
    places = range(first, first + _num_qubits(gate))
    if isinstance(gate, StandardGate):
        return gate.build(angles, places)
    if angles not in gate.expansions:
        gate.expansions[angles] = _body(context, node, gate, angles)
    return placed(gate.expansions[angles], places)


def _body(
    context: Context, node: ast.QuantumGate, gate: DefinedGate, angles: tuple[float, ...]
) -> list[GateCall]:
    if context.scopes.depth > _MOST_NESTED:
        raise context.error(node, f"the gate '{node.name.name}' calls itself")
    outer, context.gate_body = context.gate_body, []
    with context.scopes.frame(), context.in_file(gate.file):
        for argument, angle in zip(gate.node.arguments, angles, strict=True):
            variable = Variable(argument.name, Kind("angle"), angle, is_constant=True)
            context.scopes.add(argument.name, variable)
        for place, qubit in enumerate(gate.node.qubits):
            context.scopes.add(qubit.name, Qubits([place], False))
        context.run_block(gate.node.body)
    body, context.gate_body = context.gate_body, outer
    return body


def _num_controls(context: Context, node: Any) -> int:
    kinds = (ast.GateModifierName.ctrl, ast.GateModifierName.negctrl)
    return sum(_control_count(context, each) for each in node.modifiers if each.modifier in kinds)


def _control_count(context: Context, modifier: ast.QuantumGateModifier) -> int:
    if modifier.argument is None:
        return 1
    count = known_integer(context, modifier.argument, "the number of controls")
    if count < 1:
        raise context.error(modifier.argument, f"a gate cannot have {count} controls")
    return count


def _modified(context: Context, node: Any, calls: list[GateCall]) -> list[GateCall]:
    # The modifier next to the gate acts first. The first modifier has the first operands.
    end = _num_controls(context, node)
    for modifier in reversed(node.modifiers):
        name = modifier.modifier
        if name == ast.GateModifierName.inv:
            calls = inverse(calls)
        elif name == ast.GateModifierName.pow:
            exponent = known_number(context, modifier.argument, "a power")
            calls = context.at(node, power, calls, exponent)
        else:
            count = _control_count(context, modifier)
            places = range(end - count, end)
            end -= count
            negated = name == ast.GateModifierName.negctrl
            calls = controlled(calls, () if negated else places, places if negated else ())
    return calls


def _broadcast(context: Context, node: Any, operands: Sequence[Qubits]) -> list[list[int]]:
    """The qubits of each gate that a call makes: one for each element of its registers."""
    sizes = {len(operand.numbers) for operand in operands if operand.is_register}
    if len(sizes) > 1:
        raise context.error(node, f"registers of {' and '.join(map(str, sorted(sizes)))} qubits")
    made = [
        [operand.numbers[index if operand.is_register else 0] for operand in operands]
        for index in range(sizes.pop() if sizes else 1)
    ]
    for qubits in made:
        if len(set(qubits)) != len(qubits):
            raise context.error(node, "a gate needs different qubits")
    return made
