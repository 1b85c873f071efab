"""Classical computation on measured bits, which runs on read flags."""

from __future__ import annotations

from collections.abc import Callable

import pytest

from support.qasm_programs import HEADER, HEADER2, bits_of, outcomes


def prepared(value: int, statements: str, *, width: int = 3) -> dict[str, int]:
    """Measure a number into c and run statements on it."""
    flips = " ".join(f"x q[{bit}];" for bit in range(width) if value >> bit & 1)
    return bits_of(
        f"{HEADER}qubit[{width}] q; bit[{width}] c; bit[4] r; qubit w; {flips} c = measure q;"
        f" {statements}"
    )


CONDITIONS: dict[str, Callable[[int], bool]] = {
    "c == 5": lambda c: c == 5,
    'c != "101"': lambda c: c != 5,
    "uint[3](c) < 3": lambda c: c < 3,
    "uint[3](c) >= 6": lambda c: c >= 6,
    "uint[3](c) <= 6": lambda c: c <= 6,
    "2 > uint[3](c)": lambda c: c < 2,
    "int[3](c) < 0": lambda c: c >= 4,
    "int[3](c) >= -2": lambda c: c not in (4, 5),
    "int[3](c) == 6": lambda c: c == 6,
    "int[3](c) == -2": lambda c: c == 6,
    "c[0] && !c[2]": lambda c: bool(c & 1 and not c & 4),
    "c[0] || c[1]": lambda c: bool(c & 3),
    "bool(c[1])": lambda c: bool(c & 2),
    "c[0] == c[1]": lambda c: c & 1 == c >> 1 & 1,
    "c[0] ^ c[1] ^ c[2]": lambda c: c.bit_count() % 2 == 1,
    'c[0:1] == "10"': lambda c: c & 3 == 2,
    "uint[3](c) + 3 == 8": lambda c: c == 5,
    "uint[3](c) - 1 == -1": lambda c: c == 0,
    "uint[3](uint[3](c) - 1) == 7": lambda c: c == 0,
    "uint[3](c) + uint[3](c) == 2": lambda c: c in (1, 5),
    "popcount(c) == 2": lambda c: c.bit_count() == 2,
    "(c << 1) == 4": lambda c: c & 3 == 2,
    "(c >> 1) == 1": lambda c: c >> 1 == 1,
    '(c & "110") == 2': lambda c: c & 6 == 2,
    "~c == 7": lambda c: c == 0,
    "uint[3](c) == 9": lambda c: c == 9,
}


@pytest.mark.parametrize("condition", CONDITIONS)
def test_a_condition_holds_for_just_the_right_outcomes(condition: str) -> None:
    holds = CONDITIONS[condition]
    for value in range(8):
        text = f"if ({condition}) {{ x w; r[1] = 1; }} else {{ r[2] = 1; }} r[0] = measure w;"
        assert prepared(value, text)["r"] == (3 if holds(value) else 4), value


def test_a_switch_on_a_measured_number_takes_its_case() -> None:
    text = "switch (uint[3](c)) { case 1 { r = 1; } case 2, 5 { r = 2; } default { r = 3; } }"
    assert [prepared(value, text)["r"] for value in range(8)] == [3, 1, 2, 3, 3, 2, 3, 3]


def test_a_condition_sees_the_bits_as_they_were_before_its_body() -> None:
    text = (
        "if (c[0]) { c[0] = 0; x w; x w; x w; } else { c[0] = 1; } r[0] = measure w; r[1] = c[0];"
    )
    assert [prepared(value, text, width=1)["r"] for value in (0, 1)] == [2, 1]


def test_nested_conditions_hold_together() -> None:
    text = "if (c[0]) { if (c[1]) { r = 3; } else { r = 1; x w; } } else { if (!c[1]) { r = 8; } }"
    text += "r[2] = measure w;"
    assert [prepared(value, text, width=2)["r"] for value in range(4)] == [8, 5, 0, 3]


def test_an_integer_keeps_what_it_was_given_when_the_bit_changes() -> None:
    text = "uint[3] n = uint[3](c); c[0] = 0; if (n == 5) { r = 1; }"
    assert [prepared(value, text)["r"] for value in (4, 5)] == [0, 1]


def test_an_integer_that_a_condition_changes_has_the_value_of_the_branch() -> None:
    text = "uint[3] n = 2; if (c[0]) { n = 6; } n += 1; r[0:2] = bit[3](n);"
    assert [prepared(value, text)["r"] for value in (0, 1)] == [3, 7]


def test_a_subroutine_returns_from_inside_a_condition() -> None:
    text = f"""{HEADER}
    def pick(bit[2] b) -> uint[3] {{
      if (b == 1) {{ return 5; }}
      if (b == 2) {{ return 6; }} else {{ if (b == 3) return 7; }}
      return 1;
    }}
    qubit[2] q; bit[2] c; bit[3] r; {{flips}}
    c = measure q; r = bit[3](pick(c));"""
    flips = ["", "x q[0];", "x q[1];", "x q;"]
    assert [bits_of(text.replace("{flips}", each))["r"] for each in flips] == [1, 5, 6, 7]


def test_end_inside_a_condition_ends_the_run() -> None:
    text = "r[3] = 1; if (c[0]) { r[1] = 1; end; } r[2] = 1;"
    assert [prepared(value, text)["r"] for value in (0, 1)] == [0b1100, 0b1010]


def test_registers_may_be_assigned_from_themselves() -> None:
    text = "c = c[{2, 0, 1}]; r[0:2] = c;"
    assert prepared(0b001, text)["r"] == 0b010
    assert prepared(0b100, text)["r"] == 0b001


def test_every_run_of_a_program_begins_with_clear_bits() -> None:
    # Bit c[1] is measured in some runs only, and must not keep the outcome of a run before.
    text = f"""{HEADER}qubit[2] q; bit[2] c; x q[1]; h q[0];
    c[0] = measure q[0]; if (c[0]) {{ c[1] = measure q[1]; }}"""
    assert outcomes(text, 60) == {(0,), (3,)}


def test_a_bit_that_was_never_measured_may_be_tested() -> None:
    assert bits_of(f"{HEADER}qubit q; bit c; bit d; if (c == 0) x q; d = measure q;")["d"] == 1
    text = f"{HEADER2}qreg q[1]; creg c[2]; creg d[1]; if (c == 0) x q[0]; measure q[0] -> d[0];"
    assert bits_of(text)["d"] == 1


@pytest.mark.parametrize("value", range(4))
def test_openqasm_2_compares_a_whole_register(value: int) -> None:
    flips = "".join(f"x q[{bit}];" for bit in range(2) if value >> bit & 1)
    text = f"{HEADER2}qreg q[3]; creg c[2]; creg d[1]; {flips} measure q[0] -> c[0];"
    text += "measure q[1] -> c[1]; if (c == 2) x q[2]; if (c == 9) x q[2]; measure q[2] -> d[0];"
    assert bits_of(text) == {"c": value, "d": int(value == 2)}


def test_teleportation_moves_a_state() -> None:
    text = f"""{HEADER}qubit[3] q; bit[2] c; bit r;
    ry(1.1) q[0]; rz(0.4) q[0]; h q[1]; cx q[1], q[2]; cx q[0], q[1]; h q[0];
    c[0] = measure q[0]; c[1] = measure q[1];
    if (c[1]) x q[2];
    if (c[0]) z q[2];
    rz(-0.4) q[2]; ry(-1.1) q[2]; r = measure q[2];"""
    assert {found[1] for found in outcomes(text, 50)} == {0}
    assert len({found[0] for found in outcomes(text, 100)}) == 4
