"""The exact distribution of the read flags of a program, by following every branch.

Written independently of the companion: every measurement splits a branch, and gates are full
matrices. For a few qubits and a few measurements.
"""

from __future__ import annotations

import copy
from collections import defaultdict
from collections.abc import Iterable, Sequence
from dataclasses import dataclass, field

import numpy as np

from models import opcodes
from models.flags import FlagTable
from models.matrices import Matrix, gate_matrix, on_qubits, pauli_product, qubit_numbers
from models.matrices import X as PAULI_X
from models.wire import Record, set_bits, signed

LEAST_PROBABILITY = 1e-12


@dataclass
class Branch:
    """One history of outcomes."""

    probability: float = 1.0
    state: Matrix = field(default_factory=lambda: np.ones(1, dtype=np.complex128))
    flags: FlagTable = field(default_factory=FlagTable)
    open_label: int = 0

    @property
    def num_qubits(self) -> int:
        return len(self.state).bit_length() - 1


def distribution(records: Iterable[Record], flags: Sequence[int]) -> dict[tuple[int, ...], float]:
    """The probability of each tuple of values of these flags on a dense register."""
    branches = [Branch()]
    for record in records:
        branches = [new for old in branches for new in stepped(old, record)]
    total: dict[tuple[int, ...], float] = defaultdict(float)
    for branch in branches:
        total[tuple(branch.flags.get(flag) for flag in flags)] += branch.probability
    return dict(total)


def stepped(branch: Branch, record: Record) -> list[Branch]:
    """The branches after one record."""
    low = record.opcode & 0xFFFFFFFF
    if low == opcodes.LABEL:
        branch.open_label *= branch.open_label != record.target_mask
        return [branch]
    if branch.open_label:
        return [branch]
    if low == opcodes.RESET:
        branch.state = np.zeros(1 << record.target_mask, dtype=np.complex128)
        branch.state[0] = 1
        return [branch]
    if not branch.flags.holds(record.cond_flag) or low in opcodes.MARKERS:
        return [branch]
    return acted(branch, low, record)


def acted(branch: Branch, low: int, record: Record) -> list[Branch]:
    if low == opcodes.JUMP_FWD:
        branch.open_label = record.target_mask
    elif low == opcodes.FLAG_NAND:
        operands = signed(record.target_mask), signed(record.cond_mask)
        branch.flags.store_nand(*operands, 0, record.read_flag)
    elif low == opcodes.READ:
        return measured(branch, record.target_mask, record.read_flag)
    elif low in (opcodes.CLEAR, opcodes.FREE):
        return written(branch, record.target_mask, 0, 0)
    elif low == opcodes.WRITE:
        everything = record.target_mask == (1 << branch.num_qubits) - 1
        flag = 0 if everything else record.read_flag
        return written(branch, record.target_mask, record.cond_mask, flag)
    elif low == opcodes.PPM:
        return product_measured(branch, record)
    else:
        branch.state = gate_matrix(branch.num_qubits, record) @ branch.state
    return [branch]


def measured(branch: Branch, mask: int, first_flag: int) -> list[Branch]:
    """One branch for each value of the qubits of the mask."""
    indices = np.arange(len(branch.state))
    found = []
    for value in np.unique(indices & mask).tolist():
        kept = np.where(indices & mask == value, branch.state, 0)
        flags = copy.deepcopy(branch.flags)
        if first_flag:
            for number, bit in enumerate(set_bits(mask)):
                flags.set(first_flag + number, int(bool(value & bit)))
        found.append((kept, flags))
    return split(branch, found)


def product_measured(branch: Branch, record: Record) -> list[Branch]:
    product = pauli_product(branch.num_qubits, record.target_mask, record.cond_mask)
    found = []
    for outcome in (0, 1):
        kept = (branch.state + (-1) ** outcome * (product @ branch.state)) / 2
        flags = copy.deepcopy(branch.flags)
        flags.set(record.read_flag, outcome ^ int(record.angle == -1))
        found.append((kept, flags))
    return split(branch, found)


def split(branch: Branch, found: Sequence[tuple[Matrix, FlagTable]]) -> list[Branch]:
    branches = []
    for kept, flags in found:
        weight = float(np.vdot(kept, kept).real)
        if weight > LEAST_PROBABILITY:
            state = kept / np.sqrt(weight)
            branches.append(Branch(branch.probability * weight, state, flags))
    return branches


def written(branch: Branch, mask: int, value: int, flag: int) -> list[Branch]:
    """Measure, and flip the qubits with the wrong value."""
    branches = measured(branch, mask, flag)
    for each in branches:
        index = int(np.argmax(abs(each.state)))
        wrong = qubit_numbers((index ^ value) & mask)
        flips = on_qubits(each.num_qubits, dict.fromkeys(wrong, PAULI_X))
        each.state = flips @ each.state
    return branches
