"""Conditions that depend on measurements: both branches are read, and flags choose at run time."""

from __future__ import annotations

from collections.abc import Callable
from copy import deepcopy
from typing import Any, NamedTuple

from nimbrel.qasm.context import Context
from nimbrel.qasm.flag_numbers import FALSE, TRUE
from nimbrel.qasm.values import Bits, Poison, Value, Variable
from nimbrel.translation.boolean_logic import constant_flags
from nimbrel.translation.row_types import Rows

Body = Callable[[], None]


class LeavesBranchError(Exception):
    """The rest of a branch is never reached, because a jump left it."""


class _Branch(NamedTuple):
    """A branch that has been read.

    Attributes:
        rows: Its records.
        values: What each variable holds after it, or None if a jump left it.
    """

    rows: Rows
    values: list[Value] | None


def choose(context: Context, node: Any, flag: int, then: Body, otherwise: Body) -> None:
    """Read two branches of which a flag chooses one.

    Args:
        context: The state of the reading.
        node: The statement, for errors.
        flag: The flag; a constant reads one branch only.
        then: Reads the statements for 1.
        otherwise: Reads the statements for 0.

    Raises:
        QasmError: If a statement is refused, or in the body of a gate.
    """
    if flag in (TRUE, FALSE):
        (then if flag == TRUE else otherwise)()
        return
    if context.gate_body is not None:
        raise context.error(node, "a gate's body cannot depend on a measurement")
    variables = list(context.scopes.variables())
    before = [kept_value(variable.value) for variable in variables]
    stored = [set(variable.stored) for variable in variables]
    first = _read(context, variables, then)
    for variable, value in zip(variables, before, strict=True):
        variable.value = kept_value(value)
    second = _read(context, variables, otherwise)
    then_rows, else_rows = _merged(context, variables, stored, first, second)
    context.records.add_branches(flag, then_rows, else_rows)
    if first.values is None and second.values is None:
        raise LeavesBranchError


def kept_value(value: Value) -> Value:
    """The value as it is now; elements of an array are assigned in place."""
    return deepcopy(value) if isinstance(value, list) else value


def _read(context: Context, variables: list[Variable], body: Body) -> _Branch:
    start = context.records.begin_branch()
    context.branch_depth += 1
    try:
        with context.scopes.block():
            body()
        values: list[Value] | None = [variable.value for variable in variables]
    except LeavesBranchError:
        values = None
    context.branch_depth -= 1
    return _Branch(context.records.take_from(start), values)


def _merged(
    context: Context,
    variables: list[Variable],
    stored: list[set[int]],
    first: _Branch,
    second: _Branch,
) -> tuple[Rows, Rows]:
    """Let every variable hold one value after both branches; returns their records."""
    if first.values is None or second.values is None:
        values = first.values or second.values or [variable.value for variable in variables]
        for variable, value in zip(variables, values, strict=True):
            variable.value = value
        return first.rows, second.rows
    copies: tuple[list[tuple[int, int]], list[tuple[int, int]]] = ([], [])
    for variable, before, a, b in zip(variables, stored, first.values, second.values, strict=True):
        if a is not b and a != b:
            variable.value = _joined(context, variable, before, (a, b), copies)
    return _with_copies(context, first.rows, copies[0]), _with_copies(
        context, second.rows, copies[1]
    )


def _joined(
    context: Context,
    variable: Variable,
    before: set[int],
    values: tuple[Value, Value],
    copies: tuple[list[tuple[int, int]], list[tuple[int, int]]],
) -> Value:
    both = [flags_of(variable, value) for value in values]
    if both[0] is None or both[1] is None or len(both[0]) != len(both[1]):
        return Poison()
    flags: list[int] = []
    for place, pair in enumerate(zip(both[0], both[1], strict=True)):
        if pair[0] == pair[1]:
            flags.append(pair[0])
            continue
        home = variable.flags[place] if variable.flags else context.records.new_flags(1)[0]
        flags.append(home)
        for value, side in zip(pair, copies, strict=True):
            # A flag that nothing stored before reads 0, because the program begins so.
            if value != home and not (value == FALSE and variable.flags and place not in before):
                side.append((value, home))
        variable.stored.add(place)
    name, is_register = variable.kind.name, variable.kind.width is not None
    return Bits(tuple(flags), name, is_register and name == "bit")


def flags_of(variable: Variable, value: Value) -> list[int] | None:
    """The flags of a value of a variable, or None if its type has none."""
    if isinstance(value, Bits):
        return list(value.flags)
    if isinstance(value, bool | int) and variable.kind.name in ("bool", "int", "uint"):
        return constant_flags(int(value), variable.kind.num_flags)
    return None


def _with_copies(context: Context, rows: Rows, copies: list[tuple[int, int]]) -> Rows:
    start = context.records.begin_branch()
    context.records.rows += rows
    for value, home in copies:
        context.records.store(value, home)
    return context.records.take_from(start)
