"""Classical expressions have the value that Python computes, for every value of their bits."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

pytest.importorskip("qiskit", reason="qiskit has no wheel for this Python")

from qiskit import ClassicalRegister, QuantumCircuit, QuantumRegister
from qiskit.circuit.classical import expr, types

from support.qiskit_door import counts_of

Built = Callable[[Any, Any], Any]
Computed = Callable[[int, int], int]

WORD = 8  # values of three bits
EXPRESSIONS: dict[str, tuple[Built, Computed]] = {
    "and": (expr.bit_and, lambda a, b: a & b),
    "or": (expr.bit_or, lambda a, b: a | b),
    "xor": (expr.bit_xor, lambda a, b: a ^ b),
    "not": (lambda a, b: expr.bit_xor(expr.bit_not(a), b), lambda a, b: (~a ^ b) % WORD),
    "sum": (expr.add, lambda a, b: (a + b) % WORD),
    "difference": (expr.sub, lambda a, b: (a - b) % WORD),
    "product": (expr.mul, lambda a, b: a * b % WORD),
    "left shift": (expr.shift_left, lambda a, b: (a << b) % WORD),
    "right shift": (expr.shift_right, lambda a, b: a >> b),
    "shift by a constant": (lambda a, _b: expr.shift_left(a, 2), lambda a, _b: (a << 2) % WORD),
    "with constants": (
        lambda a, _b: expr.add(expr.bit_and(a, 6), 3),
        lambda a, _b: ((a & 6) + 3) % 8,
    ),
    "narrowed": (
        lambda a, _b: expr.cast(expr.cast(a, types.Uint(2)), types.Uint(3)),
        lambda a, _b: a % 4,
    ),
}
CONDITIONS: dict[str, tuple[Built, Computed]] = {
    "equal": (expr.equal, lambda a, b: a == b),
    "not equal": (expr.not_equal, lambda a, b: a != b),
    "less": (expr.less, lambda a, b: a < b),
    "less or equal": (expr.less_equal, lambda a, b: a <= b),
    "greater": (expr.greater, lambda a, b: a > b),
    "greater or equal": (expr.greater_equal, lambda a, b: a >= b),
    "equal to a constant": (lambda a, _b: expr.equal(a, 5), lambda a, _b: a == 5),
    "bit": (lambda a, _b: expr.index(a, 1), lambda a, _b: a >> 1 & 1),
    "bit by a word": (
        lambda a, b: expr.index(a, expr.bit_and(b, 1)),
        lambda a, b: a >> (b & 1) & 1,
    ),
    "any bit": (lambda a, _b: expr.cast(a, types.Bool()), lambda a, _b: a != 0),
    "logic": (
        lambda a, b: expr.logic_or(
            expr.logic_and(expr.less(a, 3), expr.logic_not(expr.less(b, 3))), expr.equal(a, b)
        ),
        lambda a, b: (a < 3 and not b < 3) or a == b,
    ),
}


def two_numbers() -> tuple[QuantumCircuit, ClassicalRegister, ClassicalRegister]:
    """A circuit that draws two numbers of three bits into registers."""
    a, b = ClassicalRegister(3, "a"), ClassicalRegister(3, "b")
    out = ClassicalRegister(3, "out")
    circuit = QuantumCircuit(QuantumRegister(6, "q"), QuantumRegister(3, "result"), a, b, out)
    circuit.h(range(6))
    circuit.measure(range(6), [*a, *b])
    return circuit, a, b


def assert_values(circuit: QuantumCircuit, expected: Computed) -> None:
    """All 64 pairs occur, each with the result that is expected."""
    seen = set()
    for outcome in counts_of(circuit):
        out, b, a = (int(part, 2) for part in outcome.split())
        assert out == expected(a, b), (a, b)
        seen.add((a, b))
    assert len(seen) == 64


@pytest.mark.parametrize("name", EXPRESSIONS)
def test_a_number(name: str) -> None:
    build, compute = EXPRESSIONS[name]
    circuit, a, b = two_numbers()
    circuit.store(circuit.cregs[2], build(a, b))
    assert_values(circuit, compute)


@pytest.mark.parametrize("name", CONDITIONS)
def test_a_condition(name: str) -> None:
    build, compute = CONDITIONS[name]
    circuit, a, b = two_numbers()
    with circuit.if_test(build(a, b)):
        circuit.x(6)
    circuit.measure(6, circuit.cregs[2][0])
    assert_values(circuit, lambda a, b: int(compute(a, b)))


def test_a_variable_keeps_its_value_until_it_is_stored_again() -> None:
    circuit, a, b = two_numbers()
    total = circuit.add_var("total", expr.lift(0, types.Uint(3)))
    circuit.store(total, expr.add(total, a))
    circuit.store(total, expr.add(expr.shift_left(total, 1), b))
    circuit.store(circuit.cregs[2], total)
    assert_values(circuit, lambda a, b: (2 * a + b) % WORD)


def test_a_swap_through_one_store_each() -> None:
    circuit, a, _ = two_numbers()
    total = circuit.add_var("total", expr.lift(a))
    circuit.store(total, expr.bit_or(expr.shift_right(total, 1), expr.shift_left(total, 2)))
    circuit.store(circuit.cregs[2], total)
    assert_values(circuit, lambda a, _b: (a >> 1 | a << 2) % WORD)


def test_a_bit_of_a_register_is_stored() -> None:
    circuit, a, b = two_numbers()
    out = circuit.cregs[2]
    circuit.store(expr.index(out, 1), expr.less(a, b))
    circuit.store(expr.index(out, expr.cast(expr.less(a, b), types.Uint(2))), expr.lift(True))
    assert_values(circuit, lambda a, b: 2 if a < b else 1)
