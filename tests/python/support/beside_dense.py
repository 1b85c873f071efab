"""A dense filter and one of another type that run the same random programs."""

from __future__ import annotations

import random
from collections.abc import Callable
from typing import Any, Generic, TypeVar

from models import opcodes
from models.wire import WORD, Record, set_bits, tagged
from support.dense import RecordFilter, StateFilter

Other = TypeVar("Other", bound=RecordFilter)
Kind = TypeVar("Kind", bound=Callable[..., None])


class DenseAnd(Generic[Other]):
    """A dense filter and another one, both of one width."""

    def __init__(self, dense: StateFilter, other: Other, num_qubits: int) -> None:
        self.num_qubits = num_qubits
        self.dense = dense
        self.other = other
        self.history: list[Record] = []

    def run(self, *records: Record) -> None:
        self.history += records
        self.dense.run_records(records)
        self.other.run_records(records)

    def compare_flags(self) -> None:
        for first in (-32, 0, 32):
            assert self.other.flags(first, 32) == self.dense.flags(first, 32)


def draw_kind(rng: random.Random, weights: dict[Kind, int]) -> Kind:
    """The kind of a program's next step, drawn by the weights."""
    return rng.choices(list(weights), weights=list(weights.values()))[0]


def top_letter(product: Record) -> int:
    """The highest qubit of a Pauli product."""
    return 1 << (product.target_mask | product.cond_mask).bit_length() - 1


def z_basis(product: Record) -> tuple[list[Record], list[Record]]:
    """Gates that map a product to Z on its highest qubit, and their inverse."""
    xs, zs, top = product.target_mask, product.cond_mask, top_letter(product)
    turn, back = (tagged(low, target_mask=xs & zs) for low in (opcodes.S_INV, opcodes.S))
    mix = tagged(opcodes.H, target_mask=xs)
    gather = [
        tagged(opcodes.X, target_mask=top, cond_mask=bit) for bit in set_bits((xs | zs) ^ top)
    ]
    return [turn, mix, *gather], [*gather, mix, back]


def classical(rng: random.Random, both: DenseAnd[Any]) -> None:
    """A flag operation. Flags are the classical conditions of later gates."""
    a, b, dest = (rng.randint(-50, 50) for _ in range(3))
    both.run(tagged(opcodes.FLAG_NAND, target_mask=a & WORD, cond_mask=b & WORD, read_flag=dest))
