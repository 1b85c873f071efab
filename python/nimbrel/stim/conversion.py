"""Stim circuits as records."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Any, Final, NamedTuple

import numpy as np
import stim

from nimbrel.opcodes import Opcode
from nimbrel.records import QPU_OP, RecordArray
from nimbrel.row_types import Rows
from nimbrel.stim import gate_rows as made
from nimbrel.stim.channels import (
    correlated_channel,
    flip_channel,
    heralded_channel,
    one_qubit_channel,
    two_qubit_channel,
)
from nimbrel.stim.noise import Channel

FIRST_FLAG: Final = 2
"""The flag of the first measurement."""

_MOST_RECORDS: Final = 100_000_000
_NOTHING: Final = int(Opcode.Z_NOP)
_NAND: Final = int(Opcode.FLAG_NAND)
_IGNORED: Final = frozenset(
    {
        *("TICK", "QUBIT_COORDS", "SHIFT_COORDS", "DETECTOR", "OBSERVABLE_INCLUDE"),
        *("I_ERROR", "II_ERROR"),
    }
)
_FEEDBACK: Final = {"X": int(Opcode.X), "Y": int(Opcode.Y), "Z": int(Opcode.Z)}


class Block(NamedTuple):
    """A part of a circuit as records.

    Attributes:
        records: The records, shape (n,), dtype `QPU_OP`.
        channels: The noise; its positions count from the first record.
        num_measurements: The measurements in the part.
    """

    records: RecordArray
    channels: list[Channel]
    num_measurements: int


class _Instruction(NamedTuple):
    """One instruction of a circuit."""

    position: int
    name: str
    arguments: list[float]
    targets: list[Any]
    groups: Callable[[], list[list[Any]]]

    def refused(self, reason: str) -> ValueError:
        return ValueError(f"instruction {self.position} ({self.name}): {reason}")

    @property
    def qubits(self) -> list[int]:
        return [target.value for target in self.targets]


def block_of(circuit: stim.Circuit, num_before: int = 0) -> Block:
    """Convert a circuit.

    Args:
        circuit: The circuit.
        num_before: The measurements before it.

    Raises:
        ValueError: If an instruction has no records, or there are too many.
    """
    builder = _Builder(num_before)
    for index in range(len(circuit)):
        instruction = circuit[index]
        if isinstance(instruction, stim.CircuitRepeatBlock):
            builder.repeat(index, instruction)
        else:
            builder.add(
                _Instruction(
                    index,
                    instruction.name,
                    instruction.gate_args_copy(),
                    instruction.targets_copy(),
                    instruction.target_groups,
                )
            )
    return builder.finish()


class _Builder:
    """Collects the records of one block."""

    def __init__(self, num_before: int) -> None:
        self._done: list[RecordArray] = []
        self._num_done = 0
        self._rows: Rows = []
        self._channels: list[Channel] = []
        self._chain: list[tuple[float, list[str], list[int]]] = []
        self._num_before = num_before
        self._count = num_before

    def add(self, instruction: _Instruction) -> None:
        """Add an instruction.

        Raises:
            ValueError: If it has no records.
        """
        name = instruction.name
        if name != "ELSE_CORRELATED_ERROR":
            self._end_chain()
        if name in made.ONE_QUBIT:
            self._rows += made.one_qubit_rows(name, instruction.qubits)
        elif name in made.TWO_QUBIT:
            self._two_qubit(instruction)
        elif name in _RULES:
            _RULES[name](self, instruction)
        elif name not in _IGNORED:
            raise instruction.refused("this system has no records for it")

    def repeat(self, index: int, block: stim.CircuitRepeatBlock) -> None:
        """Add a block that repeats.

        Raises:
            ValueError: If it has too many records.
        """
        self._end_chain()
        self._close_rows()
        try:
            body = block_of(block.body_copy(), self._count)
        except ValueError as error:
            raise ValueError(f"instruction {index} (REPEAT): {error}") from None
        count = block.repeat_count
        if self._num_done + count * len(body.records) > _MOST_RECORDS:
            raise ValueError(
                f"instruction {index} (REPEAT): the circuit has more than {_MOST_RECORDS} records"
            )
        starts = np.arange(count, dtype=np.int64) * len(body.records)
        self._channels += [each.moved(starts + self._num_done) for each in body.channels]
        self._append(_repeated(body, count))
        self._count += count * body.num_measurements

    def finish(self) -> Block:
        """The records of the block."""
        self._end_chain()
        self._close_rows()
        records = np.concatenate([np.zeros(0, dtype=QPU_OP), *self._done])
        return Block(records, self._channels, self._count - self._num_before)

    def _append(self, records: RecordArray) -> None:
        self._done.append(records)
        self._num_done += len(records)

    def _close_rows(self) -> None:
        if self._rows:
            self._append(np.array(self._rows, dtype=QPU_OP))
            self._rows = []

    @property
    def _position(self) -> int:
        return self._num_done + len(self._rows)

    def _new_flags(self, count: int) -> list[int]:
        first = FIRST_FLAG + self._count
        self._count += count
        return list(range(first, first + count))

    def _flag_of(self, instruction: _Instruction, target: Any) -> int:
        if target.is_sweep_bit_target:
            raise instruction.refused(f"sweep[{target.value}] has no value here")
        return FIRST_FLAG + self._count + int(target.value)

    def _two_qubit(self, instruction: _Instruction) -> None:
        name = instruction.name
        for a, b in instruction.groups():
            if a.is_qubit_target and b.is_qubit_target:
                self._rows += made.two_qubit_rows(name, a.value, b.value)
                continue
            # A Z of a measured bit is a condition. Between two bits nothing happens.
            letters = made.CONTROLLED[name]
            for bit, other, letter in ((a, b, letters[1]), (b, a, letters[0])):
                if not bit.is_qubit_target:
                    flag = self._flag_of(instruction, bit)
                    if other.is_qubit_target:
                        self._rows.append(made.on_qubit(_FEEDBACK[letter], other.value, flag))

    def _measure(self, instruction: _Instruction) -> None:
        letter = instruction.name[-1] if instruction.name[-1] in "XY" else "Z"
        qubits = instruction.qubits
        clears = instruction.name.startswith("MR")
        if clears and len(set(qubits)) != len(qubits):
            # A qubit that comes twice is cleared between its measurements.
            for target in instruction.targets:
                self._measure(instruction._replace(targets=[target]))
            return
        signs = [-1 if target.is_inverted_result_target else 1 for target in instruction.targets]
        flags = [
            sign * flag for sign, flag in zip(signs, self._new_flags(len(qubits)), strict=True)
        ]
        self._rows += made.basis_changes(letter, qubits)
        if instruction.arguments and instruction.arguments[0] > 0:
            positions = range(self._position, self._position + len(qubits))
            self._rows += [made.measurement(q, f) for q, f in zip(qubits, flags, strict=True)]
            self._channels.append(flip_channel(instruction.arguments[0], positions))
        else:
            self._rows += made.measurements(qubits, flags)
        if clears:
            self._rows += made.resets(qubits)
        self._rows += made.basis_changes(letter, qubits)

    def _reset(self, instruction: _Instruction) -> None:
        self._rows += made.resets(instruction.qubits)
        if instruction.name in ("RX", "RY"):
            self._rows += made.basis_changes(instruction.name[1], instruction.qubits)

    def _pair_measurement(self, instruction: _Instruction) -> None:
        letter = instruction.name[-1]
        for a, b in instruction.groups():
            inverted = a.is_inverted_result_target != b.is_inverted_result_target
            self._product(instruction, {a.value: letter, b.value: letter}, inverted)

    def _products(self, instruction: _Instruction) -> None:
        for group in instruction.groups():
            product, inverted = _folded(instruction, group)
            self._product(instruction, product, inverted)

    def _product(self, instruction: _Instruction, product: dict[int, str], inverted: bool) -> None:
        [flag] = self._new_flags(1)
        signed = -flag if inverted else flag
        if product:
            rows, stored = made.product_measurement(product, signed)
        else:
            rows, stored = [_constant(signed)], 0
        self._noisy_readings(instruction, [self._position + stored])
        self._rows += rows

    def _noisy_readings(self, instruction: _Instruction, positions: Sequence[int]) -> None:
        if instruction.arguments and instruction.arguments[0] > 0:
            self._channels.append(flip_channel(instruction.arguments[0], positions))

    def _pad(self, instruction: _Instruction) -> None:
        flags = self._new_flags(len(instruction.targets))
        positions = range(self._position, self._position + len(flags))
        self._noisy_readings(instruction, positions)
        self._rows += [
            _constant(-flag if bit else flag)
            for bit, flag in zip(instruction.qubits, flags, strict=True)
        ]

    def _rotations(self, instruction: _Instruction) -> None:
        turn = -45.0 if instruction.name.endswith("DAG") else 45.0
        for group in instruction.groups():
            product, inverted = _folded(instruction, group)
            if product:
                self._rows += made.rotation_rows(product, -turn if inverted else turn)

    def _error_places(self, qubits: Sequence[int]) -> list[int]:
        first = self._position
        self._rows += [made.on_qubit(_NOTHING, qubit) for qubit in qubits]
        return list(range(first, first + len(qubits)))

    def _one_qubit_noise(self, instruction: _Instruction) -> None:
        places = self._error_places(instruction.qubits)
        if places:
            self._channels.append(
                one_qubit_channel(instruction.name, instruction.arguments, places)
            )

    def _two_qubit_noise(self, instruction: _Instruction) -> None:
        places = self._error_places(instruction.qubits)
        pairs = list(zip(places[::2], places[1::2], strict=True))
        if pairs:
            self._channels.append(two_qubit_channel(instruction.name, instruction.arguments, pairs))

    def _heralded(self, instruction: _Instruction) -> None:
        qubits = instruction.qubits
        flags = self._new_flags(len(qubits))
        places = self._error_places(qubits)
        readings = list(range(self._position, self._position + len(qubits)))
        self._rows += [_constant(flag) for flag in flags]
        if places:
            self._channels.append(
                heralded_channel(instruction.name, instruction.arguments, places, readings)
            )

    def _correlated(self, instruction: _Instruction) -> None:
        if instruction.name == "ELSE_CORRELATED_ERROR" and not self._chain:
            raise instruction.refused("it is not right behind an E or another one")
        letters = [target.pauli_type for target in instruction.targets]
        places = self._error_places(instruction.qubits)
        self._chain.append((instruction.arguments[0], letters, places))

    def _end_chain(self) -> None:
        if self._chain:
            self._channels.append(correlated_channel(self._chain))
            self._chain = []


def _constant(flag: int) -> tuple[Any, ...]:
    """A record that stores 0, or 1 in a negative flag, whose number inverts the result."""
    return (_NAND, 1, 1, 0.0, 0, flag, 0, 0, 0, 0, 0)


def _folded(instruction: _Instruction, group: list[Any]) -> tuple[dict[int, str], bool]:
    """The letters of a product, in which a qubit may come several times, and its sign."""
    size = max(target.value for target in group) + 1
    product = stim.PauliString(size)
    for target in group:
        factor = stim.PauliString(size)
        factor[target.value] = target.pauli_type
        product *= -factor if target.is_inverted_result_target else factor
    if product.sign not in (1, -1):
        raise instruction.refused("the product is not Hermitian")
    letters = {qubit: "IXYZ"[product[qubit]] for qubit in range(size) if product[qubit]}
    return letters, product.sign == -1


def _repeated(body: Block, count: int) -> RecordArray:
    """Copies of a block, each with the flags of its own measurements."""
    records = np.tile(body.records, count)
    shifts = np.repeat(np.arange(count, dtype=np.int64) * body.num_measurements, len(body.records))
    for name in ("read_flag", "cond_flag"):
        flags = records[name]
        flags += np.sign(flags) * shifts * (np.abs(flags) >= FIRST_FLAG)
    return records


_RULES: Final[dict[str, Callable[[_Builder, _Instruction], None]]] = {
    **dict.fromkeys(("M", "MX", "MY", "MR", "MRX", "MRY"), _Builder._measure),
    **dict.fromkeys(("R", "RX", "RY"), _Builder._reset),
    **dict.fromkeys(("MXX", "MYY", "MZZ"), _Builder._pair_measurement),
    "MPP": _Builder._products,
    "MPAD": _Builder._pad,
    **dict.fromkeys(("SPP", "SPP_DAG"), _Builder._rotations),
    **dict.fromkeys(
        ("X_ERROR", "Y_ERROR", "Z_ERROR", "DEPOLARIZE1", "PAULI_CHANNEL_1"),
        _Builder._one_qubit_noise,
    ),
    **dict.fromkeys(("DEPOLARIZE2", "PAULI_CHANNEL_2"), _Builder._two_qubit_noise),
    **dict.fromkeys(("HERALDED_ERASE", "HERALDED_PAULI_CHANNEL_1"), _Builder._heralded),
    **dict.fromkeys(("E", "ELSE_CORRELATED_ERROR"), _Builder._correlated),
}
