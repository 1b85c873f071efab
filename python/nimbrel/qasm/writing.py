"""Writes programs as OpenQASM 3."""

from __future__ import annotations

from typing import Final

from nimbrel.opcodes import Opcode
from nimbrel.qasm.flag_numbers import FALSE, TRUE
from nimbrel.qasm.gate_text import gate_lines, ppr_lines, product_lines
from nimbrel.qasm.record_view import Operation, UnwritableError, flag_text, operations, signed
from nimbrel.records import QPU_OP, RecordArray

_HEADER: Final = ["OPENQASM 3.0;", 'include "stdgates.inc";']
_INDENT: Final = "  "
_MOST_FLAGS: Final = 1 << 20
_CHECK_ZERO: Final = 1 << 4


def dumps(program: RecordArray) -> str:
    """Write a program as OpenQASM 3.

    The register is `q`. Read flag k is the bit `c[k - 2]`. The program that `loads` makes of the
    text gives the same state up to the phase of the whole state, and the same flags.

    Args:
        program: The records, shape (n,), dtype `QPU_OP`. The first one resets the register.

    Returns:
        The text, which `loads` reads.

    Raises:
        ValueError: If a record has no form in OpenQASM 3. The text names it and its index.
    """
    if program.dtype != QPU_OP or program.ndim != 1:
        raise ValueError("a program is a one-dimensional array of dtype QPU_OP")
    if not len(program) or program["opcode"][0] != Opcode.RESET:
        raise ValueError("record 0: a program in OpenQASM 3 begins with a reset of its register")
    writer = _Writer(program)
    for operation in operations(program):
        try:
            writer.write(operation)
        except UnwritableError as error:
            raise ValueError(f"record {operation.position}: {error}") from None
    return writer.text()


class _Block:
    """An if statement that is open."""

    def __init__(self, label: int, index: int) -> None:
        self.label = label
        self.index = index
        self.has_else = False


class _Writer:
    """Collects the lines of one program."""

    def __init__(self, program: RecordArray) -> None:
        self._num_qubits = int(program["target_mask"][0])
        self._program = program
        self._lines: list[str] = []
        self._blocks: list[_Block] = []
        self._flags = 0

    def text(self) -> str:
        """The whole program.

        Raises:
            ValueError: If a jump has no label.
        """
        if self._blocks:
            raise ValueError(f"record {self._blocks[-1].index}: JUMP_FWD has no label behind it")
        declared = [f"qubit[{self._num_qubits}] q;"] if self._num_qubits else []
        if self._flags:
            declared.append(f"bit[{self._flags}] c;")
        return "\n".join([*_HEADER, *declared, *self._lines]) + "\n"

    def write(self, operation: Operation) -> None:
        """Add the lines of an operation.

        Raises:
            UnwritableError: If it has no form.
        """
        if operation.opcode == Opcode.JUMP_FWD:
            self._jump(operation)
        elif operation.opcode == Opcode.LABEL:
            self._label(operation)
        elif operation.flag != -1:
            lines = self._body(operation)
            if operation.flag not in (0, 1) and lines:
                condition = self._condition(operation.flag)
                lines = [f"if ({condition}) {{", *(_INDENT + line for line in lines), "}"]
            self._add(lines)

    def _add(self, lines: list[str]) -> None:
        self._lines += [_INDENT * len(self._blocks) + line for line in lines]

    def _bit(self, flag: int) -> str:
        self._flags = max(self._flags, abs(flag) - 1)
        if self._flags > _MOST_FLAGS:
            raise UnwritableError(f"the read flag {flag} is above {_MOST_FLAGS}")
        return flag_text(flag)

    def _condition(self, flag: int) -> str:
        return ("!" if flag < 0 else "") + self._bit(abs(flag))

    def _jump(self, operation: Operation) -> None:
        if operation.label == 0 or operation.flag == -1:
            return
        if operation.flag in (0, 1):
            self._begin_else(operation)
            return
        self._add([f"if ({self._condition(-operation.flag)}) {{"])
        self._blocks.append(_Block(operation.label, operation.position))

    def _begin_else(self, operation: Operation) -> None:
        # A jump without a condition right before the label of an open if begins its else.
        following = self._program[operation.position + 1 : operation.position + 2]
        ends_block = (
            self._blocks
            and not self._blocks[-1].has_else
            and len(following)
            and following["opcode"][0] == Opcode.LABEL
            and following["target_mask"][0] == self._blocks[-1].label
        )
        if not ends_block:
            raise UnwritableError("JUMP_FWD without a condition has no form in OpenQASM 3")
        self._blocks.pop()
        self._add(["} else {"])
        block = _Block(operation.label, operation.position)
        block.has_else = True
        self._blocks.append(block)

    def _label(self, operation: Operation) -> None:
        labels = [block.label for block in self._blocks]
        if operation.label not in labels:
            return
        if labels[-1] != operation.label:
            raise UnwritableError(
                f"LABEL {operation.label} ends a jump that another jump is open in"
            )
        self._blocks.pop()
        self._add(["}"])

    def _body(self, operation: Operation) -> list[str]:
        opcode = operation.opcode
        if opcode == Opcode.READ:
            return self._measured(operation)
        if opcode == Opcode.PPM:
            target, before, after = product_lines(operation)
            flag = operation.read_flag if operation.angle > 0 else -operation.read_flag
            return [*before, *self._measurement(target, flag), *after]
        if opcode == Opcode.PPR:
            return ppr_lines(operation)
        if opcode == Opcode.FLAG_NAND:
            return self._nand(operation)
        if opcode == Opcode.RESET:
            return self._reset(operation)
        if opcode in (Opcode.CLEAR, Opcode.FREE, Opcode.WRITE):
            return self._cleared(operation)
        return gate_lines(operation)

    def _reset(self, operation: Operation) -> list[str]:
        if operation.position == 0:
            return []
        if operation.label != self._num_qubits:
            raise UnwritableError(
                f"RESET changes the register from {self._num_qubits} to {operation.label} qubits"
            )
        return ["reset q;"] if self._num_qubits else []

    def _cleared(self, operation: Operation) -> list[str]:
        if operation.opcode == Opcode.FREE and operation.options & _CHECK_ZERO:
            raise UnwritableError("FREE with a check has no form in OpenQASM 3")
        if operation.opcode == Opcode.WRITE and operation.read_flag not in (0, 1, -1):
            raise UnwritableError("WRITE into read flags has no form in OpenQASM 3")
        lines = [f"reset q[{qubit}];" for qubit in operation.targets]
        if operation.opcode == Opcode.WRITE:
            lines += [f"x q[{qubit}];" for qubit in operation.controls]
        return lines

    def _measured(self, operation: Operation) -> list[str]:
        qubits, first = operation.targets, operation.read_flag
        last = first + len(qubits) - 1
        if len(qubits) > 1 and first > 1 and qubits[-1] - qubits[0] == len(qubits) - 1:
            self._bit(last)
            return [f"c[{first - 2}:{last - 2}] = measure q[{qubits[0]}:{qubits[-1]}];"]
        return [
            line
            for number, qubit in enumerate(qubits)
            for line in self._measurement(qubit, first + number)
        ]

    def _measurement(self, qubit: int, flag: int) -> list[str]:
        if flag in (0, 1, -1):
            return [f"measure q[{qubit}];"]
        bit = self._bit(abs(flag))
        lines = [f"{bit} = measure q[{qubit}];"]
        return lines if flag > 0 else [*lines, f"{bit} = ~{bit};"]

    def _nand(self, operation: Operation) -> list[str]:
        if operation.read_flag in (0, 1, -1):
            return []
        a, b = (signed(word) or FALSE for word in operation.words)
        bit = self._bit(abs(operation.read_flag))
        both = self._conjunction(a, b)
        if both in ("0", "1"):
            value = both if operation.read_flag < 0 else "10"[int(both)]
            return [f"{bit} = {value};"]
        return [f"{bit} = {both};" if operation.read_flag < 0 else f"{bit} = ~({both});"]

    def _conjunction(self, a: int, b: int) -> str:
        if FALSE in (a, b):
            return "0"
        if a == b == TRUE:
            return "1"
        texts = [
            ("~" if flag < 0 else "") + self._bit(abs(flag)) for flag in (a, b) if flag != TRUE
        ]
        return " & ".join(texts)
