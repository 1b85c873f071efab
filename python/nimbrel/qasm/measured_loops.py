"""While loops whose condition depends on measurements: they repeat while the program runs.

The body is read once for all repetitions, so a variable that it changes cannot be a known value in
it. Such a variable gets flags, its home, where each repetition finds it and stores it at its end.
Which variables these are shows after the body has been read, and then it is read again.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from nimbrel.qasm.branches import LeavesBranchError, flags_of, kept_value
from nimbrel.qasm.context import Context, MeasuredLoop
from nimbrel.qasm.flag_numbers import FALSE
from nimbrel.qasm.values import Bits, Poison, Value, Variable

_FLAG_TYPES = ("bit", "bool", "int", "uint")


def repeat_while(
    context: Context, node: Any, first: int, condition: Callable[[], int], body: Callable[[], None]
) -> None:
    """Read a loop.

    Args:
        context: The state of the reading.
        node: The statement, for errors.
        first: The flag of the condition before the first repetition.
        condition: Reads the condition; returns its flag.
        body: Reads the body.

    Raises:
        QasmError: If a statement is refused.
    """
    homes = _Homes(context)
    loop = MeasuredLoop(
        context.records.new_flags(1)[0],
        context.records.new_label(),
        context.records.new_label(),
        len(context.frames),
        homes.settle,
    )
    start = context.records.begin_branch()
    context.open_loops.append(loop)
    while True:
        context.records.store(first, loop.flag)
        homes.enter()
        _read(context, node, loop, homes, condition, body)
        if not homes.extend():
            break
        context.records.take_from(start)
    context.open_loops.pop()
    context.records.label(loop.leave)
    homes.stand()


def _read(
    context: Context,
    node: Any,
    loop: MeasuredLoop,
    homes: _Homes,
    condition: Callable[[], int],
    body: Callable[[], None],
) -> None:
    place = (context.file, node.span.start_line, node.span.start_column + 1)
    number = context.records.begin_loop(place)
    context.records.jump(loop.leave, -loop.flag)
    loop.continues = False
    context.branch_depth += 1
    reaches_end = _read_body(context, loop, body)
    if reaches_end:
        homes.settle()
    if loop.continues:
        context.records.label(loop.next_round)
    if reaches_end or loop.continues:
        homes.stand()
        context.records.store(condition(), loop.flag)
        homes.settle()
        context.records.jump_back(number, loop.flag)
    context.branch_depth -= 1


def _read_body(context: Context, loop: MeasuredLoop, body: Callable[[], None]) -> bool:
    """Read a body; returns whether its end may be reached."""
    outer, context.loop = context.loop, loop
    depth = context.branch_depth
    try:
        body()
    except LeavesBranchError:
        return False
    finally:
        context.loop = outer
        context.branch_depth = depth
    return True


def break_measured(context: Context) -> None:
    """End the innermost loop if it repeats while the program runs.

    Raises:
        LeavesBranchError: If it does.
    """
    loop = _innermost(context)
    if loop is not None:
        loop.settle()
        context.records.store(FALSE, loop.flag)
        context.records.jump(loop.leave)
        raise LeavesBranchError


def continue_measured(context: Context) -> None:
    """End a repetition of the innermost loop if it repeats while the program runs.

    Raises:
        LeavesBranchError: If it does.
    """
    loop = _innermost(context)
    if loop is not None:
        loop.settle()
        loop.continues = True
        context.records.jump(loop.next_round)
        raise LeavesBranchError


def _innermost(context: Context) -> MeasuredLoop | None:
    loop = context.loop
    return loop if loop is not None and loop.depth == len(context.frames) else None


class _Homes:
    """Where the variables are between two repetitions of a loop."""

    def __init__(self, context: Context) -> None:
        self._context = context
        every = context.scopes.variables()
        self._variables = [variable for variable in every if not variable.is_constant]
        self._before = [kept_value(variable.value) for variable in self._variables]
        self._homes: dict[int, Value] = {}
        self._without_home: set[int] = set()
        for variable in self._variables:
            # A repetition may store any of them, and the next one finds what it stored.
            variable.stored.update(range(len(variable.flags)))
            variable.set_positions.update(range(len(variable.flags)))

    def enter(self) -> None:
        """Store the variables as they are before the loop."""
        for variable, before in zip(self._variables, self._before, strict=True):
            variable.value = kept_value(before)
        self.settle()
        self.stand()

    def stand(self) -> None:
        """Let the variables be what they are between two repetitions."""
        for place, variable in enumerate(self._variables):
            home = self._homes.get(place)
            variable.value = kept_value(self._before[place]) if home is None else home

    def settle(self) -> None:
        """Store the variables in their homes, and note those that need one."""
        for place, variable in enumerate(self._variables):
            home = self._homes.get(place)
            if home is None:
                before, value = self._before[place], variable.value
                if value is not before and value != before:
                    self._without_home.add(place)
            elif isinstance(home, Bits):
                self._store(place, variable, home)

    def _store(self, place: int, variable: Variable, home: Bits) -> None:
        flags = flags_of(variable, variable.value)
        if flags is None or len(flags) != len(home.flags):
            self._without_home.add(place)
            return
        for flag, stored in zip(flags, home.flags, strict=True):
            self._context.records.store(flag, stored)

    def extend(self) -> bool:
        """Give homes to the variables that need one; returns whether there were any."""
        found = sorted(self._without_home)
        self._without_home.clear()
        for place in found:
            # What does not fit the flags that it has can have none.
            new = place not in self._homes
            self._homes[place] = self._home(self._variables[place]) if new else Poison()
        return bool(found)

    def _home(self, variable: Variable) -> Value:
        kind = variable.kind
        if kind.name not in _FLAG_TYPES:
            return Poison()
        flags = variable.flags or self._context.records.new_flags(kind.num_flags)
        is_register = kind.name == "bit" and kind.width is not None
        return Bits(tuple(flags), kind.name, is_register)
