"""The qubits that an operand names."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

from openqasm3 import ast

from nimbrel.qasm.context import Context
from nimbrel.qasm.expressions import positions
from nimbrel.qasm.scope import Qubits


def qubits_of(context: Context, node: Any) -> Qubits:
    """The qubits that an operand or the right side of an alias names.

    Raises:
        QasmError: If it names none.
    """
    if isinstance(node, ast.Identifier):
        return _named(context, node, node.name)
    if isinstance(node, ast.IndexedIdentifier):
        return _indexed(context, _named(context, node, node.name.name), node.indices)
    if isinstance(node, ast.IndexExpression):
        return _indexed(context, qubits_of(context, node.collection), [node.index])
    if isinstance(node, ast.Concatenation):
        left, right = qubits_of(context, node.lhs), qubits_of(context, node.rhs)
        return Qubits([*left.numbers, *right.numbers], True)
    raise context.error(node, f"{type(node).__name__} names no qubits")


def _named(context: Context, node: Any, name: str) -> Qubits:
    entry = context.scopes.find(name)
    if isinstance(entry, Qubits):
        if context.gate_body is not None and context.scopes.is_from_outside(name):
            raise context.error(node, f"the gate's body does not see the qubits '{name}'")
        return entry
    if name.startswith("$"):
        return _physical(context, node, int(name[1:]))
    if entry is None:
        raise context.error(node, f"'{name}' is not defined")
    raise context.error(node, f"'{name}' is no qubit")


def _physical(context: Context, node: Any, number: int) -> Qubits:
    if context.physical is None:
        context.physical = not context.registers
    if not context.physical:
        raise context.error(node, "a program has either physical qubits or declared ones")
    context.num_qubits = max(context.num_qubits, number + 1)
    return Qubits([number], False)


def _indexed(context: Context, qubits: Qubits, groups: Sequence[Any]) -> Qubits:
    for group in groups:
        for entry in [group] if isinstance(group, ast.DiscreteSet) else group:
            if not qubits.is_register:
                raise context.error(entry, "a single qubit has no elements")
            chosen = positions(context, entry, len(qubits.numbers))
            if isinstance(chosen, int):
                qubits = Qubits([qubits.numbers[chosen]], False)
            else:
                qubits = Qubits([qubits.numbers[place] for place in chosen], True)
    return qubits
