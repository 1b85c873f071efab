"""Reads OpenQASM 2 through Qiskit's importer, which is compiled and reports lines and columns."""

from __future__ import annotations

import re
from collections.abc import Sequence
from pathlib import Path
from typing import Any, Final

import qiskit.qasm2
from qiskit.circuit import QuantumCircuit

from nimbrel.qasm.errors import QasmError
from nimbrel.qasm.flag_logic import FlagLogic
from nimbrel.qasm.flag_numbers import FIRST_FLAG
from nimbrel.qasm.gate_calls import GateCall, placed
from nimbrel.qasm.qasm_program import QasmProgram
from nimbrel.qasm.record_list import RecordList
from nimbrel.qasm.standard_gates import QELIB1

_POSITION: Final = re.compile(r"(.*?):(\d+),(\d+): (.*)", re.DOTALL)
_COMMENT: Final = re.compile(r"//[^\n]*")


def read2(text: str, file: str, folder: Path | None) -> QasmProgram:
    """Read an OpenQASM 2 program.

    Args:
        text: The program.
        file: Its name in errors.
        folder: Where included files are looked for, or None.

    Raises:
        QasmError: If the text is not OpenQASM 2, or if it uses an opaque gate.
    """
    circuit = _parsed(text, file, folder)
    reader = _Reader(text, file, circuit)
    reader.read(circuit)
    return QasmProgram(
        reader.records.finish(circuit.num_qubits, circuit.num_clbits).records,
        circuit.num_qubits,
        _ranges(circuit.qregs, 0),
        _ranges(circuit.cregs, FIRST_FLAG),
    )


def _parsed(text: str, file: str, folder: Path | None) -> QuantumCircuit:
    places = () if folder is None else (str(folder),)
    try:
        return qiskit.qasm2.loads(
            text,
            include_path=(*qiskit.qasm2.LEGACY_INCLUDE_PATH, *places),
            custom_instructions=qiskit.qasm2.LEGACY_CUSTOM_INSTRUCTIONS,
            custom_classical=qiskit.qasm2.LEGACY_CUSTOM_CLASSICAL,
        )
    except qiskit.qasm2.QASM2ParseError as error:
        found = _POSITION.match(error.message)
        if found is None:
            raise QasmError(error.message, file, 1, 1) from None
        name = file if found[1] == "<input>" else found[1]
        raise QasmError(found[4], name, int(found[2]), int(found[3]) + 1) from None


def _ranges(registers: Sequence[Any], first: int) -> dict[str, range]:
    ranges: dict[str, range] = {}
    for register in registers:
        ranges[register.name] = range(first, first + len(register))
        first += len(register)
    return ranges


class _Reader:
    """Adds the operations of a circuit to a list of records."""

    def __init__(self, text: str, file: str, circuit: QuantumCircuit) -> None:
        self.records = RecordList()
        self._logic = FlagLogic(self.records)
        self._text = text
        self._file = file
        self._qubits = {qubit: number for number, qubit in enumerate(circuit.qubits)}
        self._flags = {bit: FIRST_FLAG + number for number, bit in enumerate(circuit.clbits)}
        self._expansions: dict[tuple[Any, ...], list[GateCall]] = {}

    def read(self, circuit: QuantumCircuit) -> None:
        """Add the operations of the whole program."""
        numbers = self._qubits
        add, known = self.records.gates, QELIB1
        for instruction in circuit.data:
            qubits = [numbers[qubit] for qubit in instruction.qubits]
            gate = known.get(instruction.name) if instruction.is_standard_gate() else None
            if gate is not None:
                add(gate.build(instruction.params, qubits))
            else:
                self._operation(instruction, qubits)

    def _operation(self, instruction: Any, qubits: list[int]) -> None:
        name = instruction.name
        if name == "measure" and instruction.clbits:
            self.records.measure(qubits, [self._flags[bit] for bit in instruction.clbits])
        elif name == "reset":
            self.records.clear(qubits)
        elif name == "if_else" and instruction.is_control_flow():
            self._conditional(instruction.operation)
        elif name != "barrier":
            self._defined(instruction.operation, qubits)

    def _conditional(self, operation: Any) -> None:
        # OpenQASM 2 compares a whole register with a number, and has one operation and no else.
        register, value = operation.condition
        flags = [self._flags[bit] for bit in register]
        if value >> len(flags):
            return
        condition = self._logic.all_of(
            [flag if value >> place & 1 else -flag for place, flag in enumerate(flags)]
        )
        start = self.records.begin_branch()
        self.read(operation.blocks[0])
        self.records.add_branches(condition, self.records.take_from(start), [])

    def _defined(self, operation: Any, qubits: list[int]) -> None:
        self.records.gates(placed(self._expanded(operation), qubits))

    def _expanded(self, operation: Any) -> list[GateCall]:
        """The operations of a gate on the places 0, 1, ..."""
        key = (type(operation), operation.name, *operation.params)
        if key not in self._expansions:
            self._expansions[key] = self._expand(operation)
        return self._expansions[key]

    def _expand(self, operation: Any) -> list[GateCall]:
        definition = operation.definition
        if definition is None:
            raise self._opaque(operation.name)
        places = {qubit: place for place, qubit in enumerate(definition.qubits)}
        calls: list[GateCall] = []
        for inner in definition.data:
            qubits = [places[qubit] for qubit in inner.qubits]
            gate = QELIB1.get(inner.name) if inner.is_standard_gate() else None
            if gate is not None:
                calls += gate.build(inner.params, qubits)
            elif inner.name != "barrier":
                calls += placed(self._expanded(inner.operation), qubits)
        return calls

    def _opaque(self, name: str) -> QasmError:
        message = f"the opaque gate '{name}' has no body that could run"
        text = _COMMENT.sub(lambda found: " " * len(found[0]), self._text)
        declared = re.search(rf"\bopaque\s+{re.escape(name)}\b[^;]*;", text)
        start = declared.end() if declared is not None else 0
        used = re.search(rf"\b{re.escape(name)}\b", text[start:])
        position = start + used.start() if used is not None else 0
        line = text.count("\n", 0, position) + 1
        return QasmError(message, self._file, line, position - text.rfind("\n", 0, position))
