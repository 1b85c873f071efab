"""What the reader of an OpenQASM 3 program knows while it walks over the statements."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping, Sequence
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Any, ParamSpec, TypeVar

from nimbrel.qasm.errors import QasmError
from nimbrel.qasm.flag_logic import FlagLogic
from nimbrel.qasm.flag_numbers import FALSE, FIRST_FLAG
from nimbrel.qasm.gate_calls import GateCall
from nimbrel.qasm.record_list import RecordList
from nimbrel.qasm.scope import Frame, Qubits, Scopes, Subroutine
from nimbrel.qasm.standard_gates import BUILT_IN
from nimbrel.qasm.values import Value, Variable

_P = ParamSpec("_P")
_R = TypeVar("_R")


@dataclass
class MeasuredLoop:
    """A loop that repeats while the program runs.

    Attributes:
        flag: The flag that is 1 while the loop runs.
        leave: The label of its end.
        next_round: The label of the end of its body.
        depth: The subroutine calls around it.
        settle: Stores the variables where the next repetition looks for them.
        continues: Whether a statement jumps to `next_round`.
    """

    flag: int
    leave: int
    next_round: int
    depth: int
    settle: Callable[[], None]
    continues: bool = False


class Context:
    """The state of one reading.

    Attributes:
        records: The program's records so far.
        logic: Adds records of classical operations.
        scopes: The visible names.
        file: The file of the present statement.
        folder: Where included files are looked for, or None.
        inputs: The values of input variables.
        num_qubits: Qubits declared so far.
        num_flags: Flags of global registers of bits so far.
        physical: Whether qubits are physical ones such as $0; None before the first qubit.
        registers: The qubits of each register.
        outputs: The global variables of bits, in the order of their declaration.
        gate_body: The operations of the gate whose body is being read, or None outside one.
        branch_depth: The conditions around the present statement that depend on measurements,
            since the beginning of the subroutine.
        loop_branch_depth: Those around the innermost loop.
        loop: The innermost loop if it repeats while the program runs, or None.
        open_loops: Those loops whose body is being read, innermost last.
        included: The files that have been included.
        frames: The subroutines around the present statement.
        end_label: The label of the program's end, if a statement jumps there.
    """

    def __init__(self, file: str, folder: Path | None, inputs: Mapping[str, float]) -> None:
        self.records = RecordList()
        self.logic = FlagLogic(self.records)
        self.scopes = Scopes(BUILT_IN)
        self.file = file
        self.folder = folder
        self.inputs = dict(inputs)
        self.num_qubits = 0
        self.num_flags = 0
        self.physical: bool | None = None
        self.registers: dict[str, Qubits] = {}
        self.outputs: list[Variable] = []
        self.gate_body: list[GateCall] | None = None
        self.branch_depth = 0
        self.loop_branch_depth = 0
        self.loop: MeasuredLoop | None = None
        self.open_loops: list[MeasuredLoop] = []
        self.included: list[str] = []
        self.frames: list[Frame] = []
        self.end_label: int | None = None
        self.call_subroutine: Callable[[Subroutine, Any], Value | None]
        self.qubits: Callable[[Any], Qubits]
        self.run_block: Callable[[Sequence[Any]], None]

    def error(self, node: Any, message: str) -> QasmError:
        """The error of a statement or an expression."""
        span = node.span
        return QasmError(message, self.file, span.start_line, span.start_column + 1)

    def leave_loops(self) -> None:
        """Note in the flags of loops that a jump leaves those of the present subroutine or program.

        The end of a skipped loop is a place where its flag is tested.
        """
        for loop in self.open_loops:
            if not self.frames or loop.depth == len(self.frames):
                self.records.store(FALSE, loop.flag)

    def at(self, node: Any, rule: Callable[_P, _R], *args: _P.args, **kwargs: _P.kwargs) -> _R:
        """Call a function and name the place of a node in an error that lacks one."""
        try:
            return rule(*args, **kwargs)
        except QasmError:
            raise
        except (ValueError, OverflowError) as error:  # OverflowError: too large for a float
            raise self.error(node, str(error)) from None

    @contextmanager
    def in_file(self, file: str) -> Iterator[None]:
        """Name another file in errors."""
        before, self.file = self.file, file
        try:
            yield
        finally:
            self.file = before

    def new_qubits(self, count: int) -> range:
        """Qubits that follow those declared so far."""
        self.num_qubits += count
        return range(self.num_qubits - count, self.num_qubits)

    def new_output_flags(self, count: int) -> list[int]:
        """Flags for a global register of bits."""
        first = FIRST_FLAG + self.num_flags
        self.num_flags += count
        return list(range(first, first + count))

    def measure(self, node: Any, qubits: Sequence[int], flags: Sequence[int]) -> None:
        """Measure qubits into flags.

        Raises:
            QasmError: Inside the body of a gate, or if the numbers differ.
        """
        if self.gate_body is not None:
            raise self.error(node, "a gate's body cannot measure")
        if len(qubits) != len(flags):
            raise self.error(node, f"{len(qubits)} qubits do not fit {len(flags)} bits")
        self.records.measure(qubits, flags)
