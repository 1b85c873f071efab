"""Declarations and assignments of classical variables."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

from openqasm3 import ast

from nimbrel.qasm.context import Context
from nimbrel.qasm.expressions import evaluate, indexed, kind_of, positions
from nimbrel.qasm.flag_numbers import FALSE, TRUE
from nimbrel.qasm.operands import qubits_of
from nimbrel.qasm.operators import binary
from nimbrel.qasm.scope import Qubits
from nimbrel.qasm.values import Bits, Duration, Kind, Value, Variable, converted


def declare(context: Context, node: ast.ClassicalDeclaration) -> None:
    """Carry out a declaration of a variable, with its initial value."""
    kind = kind_of(context, node.type)
    # The initial value is computed before the name exists.
    if isinstance(node.init_expression, ast.QuantumMeasurement):
        assign(context, node, new_variable(context, node, node.identifier.name, kind),
               node.init_expression)  # fmt: skip
        return
    value = None if node.init_expression is None else _initial(context, node, kind)
    variable = new_variable(context, node, node.identifier.name, kind)
    if value is not None:
        set_value(context, node, variable, value)


def declare_constant(context: Context, node: ast.ConstantDeclaration) -> None:
    """Carry out a declaration of a constant."""
    kind = kind_of(context, node.type)
    value = context.at(node, converted, evaluate(context, node.init_expression), kind,
                       context.logic)  # fmt: skip
    name = node.identifier.name
    check_new(context, node, name)
    context.scopes.add(name, Variable(name, kind, value, is_constant=True))


def declare_input(context: Context, node: ast.IODeclaration) -> None:
    """Carry out a declaration of an input or an output."""
    if node.io_identifier == ast.IOKeyword.output:
        new_variable(context, node, node.identifier.name, kind_of(context, node.type))
        return
    name = node.identifier.name
    if name not in context.inputs:
        raise context.error(node, f"the input '{name}' needs a value: inputs={{{name!r}: ...}}")
    kind = kind_of(context, node.type)
    variable = new_variable(context, node, name, kind)
    value: Any = context.inputs[name]
    if isinstance(value, str):
        value = Bits(tuple(TRUE if bit == "1" else FALSE for bit in reversed(value)), "bit", True)
    set_value(context, node, variable, value)


def check_new(context: Context, node: Any, name: str) -> None:
    """Refuse a name that its scope has already.

    Raises:
        QasmError: If the name is taken.
    """
    if context.scopes.is_declared_here(name):
        raise context.error(node, f"'{name}' is already defined")


def new_variable(context: Context, node: Any, name: str, kind: Kind) -> Variable:
    """Declare a variable whose value is 0.

    Raises:
        QasmError: If the name is taken.
    """
    check_new(context, node, name)
    variable = Variable(name, kind, _zero(kind), depth=context.scopes.depth)
    if kind.name == "bit":
        is_output = context.scopes.is_global
        make = context.new_output_flags if is_output else context.records.new_flags
        variable.flags = make(kind.num_flags)
        if is_output:
            context.outputs.append(variable)
        if context.open_loops:
            # The repetition before may have stored them.
            variable.stored.update(range(len(variable.flags)))
    context.scopes.add(name, variable)
    return variable


def _zero(kind: Kind) -> Value:
    if kind.base is not None:
        if not kind.shape:
            return _zero(kind.base)
        inner = Kind("array", base=kind.base, shape=kind.shape[1:])
        return [_zero(inner) for _ in range(kind.shape[0])]
    if kind.name == "bit":
        return Bits((FALSE,) * kind.num_flags, "bit", kind.width is not None)
    if kind.name in ("duration", "stretch"):
        return Duration()
    zeros: dict[str, Value] = {"bool": False, "int": 0, "uint": 0, "complex": 0j}
    return zeros.get(kind.name, 0.0)


def _initial(context: Context, node: Any, kind: Kind) -> Value:
    if kind.name in ("duration", "stretch"):
        return Duration()
    return evaluate(context, node.init_expression)


def set_value(context: Context, node: Any, variable: Variable, value: Value) -> None:
    """Give a whole variable a value.

    Raises:
        QasmError: If the value does not fit its type.
    """
    if variable.kind.base is not None:
        variable.value = _array(context, node, value, variable.kind.base, variable.kind.shape)
        return
    made = context.at(node, converted, value, variable.kind, context.logic)
    if variable.kind.name == "bit":
        assert isinstance(made, Bits)
        _store(context, variable, range(len(made.flags)), made.flags)
    elif isinstance(made, Bits):
        flags = context.logic.copy(made.flags)
        variable.value = Bits(tuple(flags), made.name, made.is_register)
    else:
        variable.value = made


def _array(
    context: Context, node: Any, value: Value, base: Kind, shape: Sequence[int]
) -> list[Value]:
    if not isinstance(value, list) or len(value) != shape[0]:
        raise context.error(node, f"the array needs {shape[0]} elements")
    if len(shape) > 1:
        return [_array(context, node, each, base, shape[1:]) for each in value]
    return [_element(context, node, each, base) for each in value]


def _element(context: Context, node: Any, value: Value, base: Kind) -> Value:
    made = context.at(node, converted, value, base, context.logic)
    if isinstance(made, Bits):
        flags = context.logic.copy(made.flags)
        return Bits(tuple(flags), made.name, made.is_register)
    return made


def _store(
    context: Context, variable: Variable, places: Sequence[int], flags: Sequence[int]
) -> None:
    """Store flags at places of a variable of bits. Constants are stored when they are needed."""
    homes = [variable.flags[place] for place in places]
    if any(abs(flag) in homes and abs(flag) != home
           for flag, home in zip(flags, homes, strict=True)):  # fmt: skip
        flags = context.logic.copy(flags)  # storing one would change another
    assert isinstance(variable.value, Bits)
    value = list(variable.value.flags)
    for place, home, flag in zip(places, homes, flags, strict=True):
        variable.set_positions.add(place)
        if flag in (TRUE, FALSE):
            value[place] = flag
            continue
        context.records.store(flag, home)
        variable.stored.add(place)
        value[place] = home
    variable.value = Bits(tuple(value), "bit", variable.value.is_register)


def store_constants(context: Context) -> None:
    """Store the known bits of the global registers, so that their flags hold them."""
    for variable in context.outputs:
        assert isinstance(variable.value, Bits)
        for place in sorted(variable.set_positions):
            flag, home = variable.value.flags[place], variable.flags[place]
            # A flag that nothing stored reads 0.
            if flag == TRUE or (flag == FALSE and place in variable.stored):
                context.records.store(flag, home)


def assignment(context: Context, node: ast.ClassicalAssignment) -> None:
    """Carry out an assignment."""
    target = node.lvalue
    indices = target.indices if isinstance(target, ast.IndexedIdentifier) else []
    name = target.name.name if isinstance(target, ast.IndexedIdentifier) else target.name
    variable = assignable(context, node, name)
    operation = node.op.name
    if operation == "=":
        assign(context, node, variable, node.rvalue, indices)
        return
    old = indexed(context, variable.value, indices)
    right = evaluate(context, node.rvalue)
    value = context.at(node, binary, operation[:-1], old, right, context.logic)
    set_indexed(context, node, variable, indices, value)


def assignable(context: Context, node: Any, name: str) -> Variable:
    """The variable of a name, if a statement may assign it.

    Raises:
        QasmError: If it may not.
    """
    entry = context.scopes.find(name)
    if not isinstance(entry, Variable):
        known = "is no classical variable" if entry is not None else "is not defined"
        raise context.error(node, f"'{name}' {known}")
    if entry.is_constant:
        raise context.error(node, f"'{name}' is a constant")
    if entry.depth != context.scopes.depth and entry.kind.base is None:
        raise context.error(node, f"a subroutine cannot assign the global variable '{name}'")
    return entry


def assign(
    context: Context, node: Any, variable: Variable, expression: Any, indices: Sequence[Any] = ()
) -> None:
    """Give a variable, or some of its elements, the value of an expression."""
    if isinstance(expression, ast.QuantumMeasurement) and variable.kind.name == "bit":
        measure_into(context, node, variable, indices, qubits_of(context, expression.qubit))
        return
    set_indexed(context, node, variable, indices, evaluate(context, expression))


def measure_into(
    context: Context, node: Any, variable: Variable, indices: Sequence[Any], qubits: Qubits
) -> None:
    """Measure qubits into a variable of bits."""
    places = _places(context, node, variable, indices)
    context.measure(node, qubits.numbers, [variable.flags[place] for place in places])
    assert isinstance(variable.value, Bits)
    value = list(variable.value.flags)
    for place in places:
        value[place] = variable.flags[place]
    variable.stored.update(places)
    variable.set_positions.update(places)
    variable.value = Bits(tuple(value), "bit", variable.value.is_register)


def _places(context: Context, node: Any, variable: Variable, indices: Sequence[Any]) -> list[int]:
    places = list(range(len(variable.flags)))
    for group in indices:
        for entry in [group] if isinstance(group, ast.DiscreteSet) else group:
            if variable.kind.width is None:
                raise context.error(node, "a single bit has no elements")
            chosen = positions(context, entry, len(places))
            places = [places[each] for each in ([chosen] if isinstance(chosen, int) else chosen)]
    return places


def set_indexed(
    context: Context, node: Any, variable: Variable, indices: Sequence[Any], value: Value
) -> None:
    """Give some elements of a variable a value.

    Raises:
        QasmError: If the value does not fit, or the variable has no elements.
    """
    if not indices:
        set_value(context, node, variable, value)
    elif variable.kind.name == "bit":
        places = _places(context, node, variable, indices)
        is_bit = isinstance(value, bool | int) and len(places) == 1
        made = converted_bits(context, node, value, None if is_bit else len(places))
        _store(context, variable, places, made.flags)
    elif variable.kind.base is not None:
        _set_element(context, node, variable, indices, value)
    else:
        raise context.error(node, f"elements of type {variable.kind} cannot be assigned")


def converted_bits(context: Context, node: Any, value: Value, width: int | None) -> Bits:
    """A value as bits."""
    if isinstance(value, Bits) and len(value.flags) == (width or 1):
        return value
    made = context.at(node, converted, value, Kind("bit", width), context.logic)
    assert isinstance(made, Bits)
    return made


def _set_element(
    context: Context, node: Any, variable: Variable, indices: Sequence[Any], value: Value
) -> None:
    entries = [entry for group in indices
               for entry in ([group] if isinstance(group, ast.DiscreteSet) else group)]  # fmt: skip
    base, shape = variable.kind.base, list(variable.kind.shape)
    assert base is not None
    holder: Any = variable.value
    for entry in entries[:-1]:
        holder = holder[_one_place(context, entry, holder)]
        shape.pop(0)
    place = _one_place(context, entries[-1], holder)
    shape.pop(0)
    holder[place] = (
        _array(context, node, value, base, shape) if shape else _element(context, node, value, base)
    )


def _one_place(context: Context, entry: Any, holder: Any) -> int:
    chosen = positions(context, entry, len(holder)) if isinstance(holder, list) else None
    if not isinstance(chosen, int):
        raise context.error(entry, "an array's element is assigned by single indices")
    return chosen
