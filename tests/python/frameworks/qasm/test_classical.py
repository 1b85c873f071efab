"""The classical part of OpenQASM 3 that is known before the run."""

from __future__ import annotations

import pytest

from support.qasm_programs import HEADER, bits_of


def value(statements: str, *, width: int = 8) -> int:
    """The number that the statements leave in the register r."""
    return bits_of(f"{HEADER}bit[{width}] r; qubit q; {statements}")["r"]


@pytest.mark.parametrize(
    ("expression", "expected"),
    [
        ("7 / 2", 3),
        ("1 << 6 >> 2", 16),
        ("2 ** 5 + 1", 33),
        ("17 % 5", 2),
        ("~0", 255),
        ("6 & 3 | 8 ^ 1", 11),
        ("floor(sqrt(2) * 100)", 141),
        ('popcount("1011")', 3),
        ("sizeof(a)", 3),
        ("a[-1]", 30),
        ("m[1, 0]", 3),
        ("word[1:2][1]", 1),
        ("int(pi)", 3),
        ("ceiling(2.1)", 3),
        ("mod(-7, 4) + 10", 7),
        ("uint[3](9)", 1),
        ("int[3](5) + 8", 5),
        ("num[0] + 2 * 4", 9),
    ],
)
def test_an_expression_has_the_value_of_the_language(expression: str, expected: int) -> None:
    declared = (
        "array[int[16], 3] a = {10, 20, 30}; array[int[8], 2, 2] m = {{1, 2}, {3, 4}};"
        'bit[3] word = "101"; uint[4] num = 5;'
    )
    assert value(f"{declared} int[16] made = {expression}; r = bit[8](uint[8](made));") == expected


def test_variables_wrap_at_their_size() -> None:
    assert value("uint[4] num = 15; num += 3; r = bit[8](uint[8](num));") == 2


def test_a_sized_angle_is_a_multiple_of_a_fraction_of_a_turn() -> None:
    text = "angle[2] a = 0.9; int[8] made = floor(2 * a / pi + 0.5); r = bit[8](made);"
    assert value(text) == 1


def test_registers_are_sliced_and_shifted() -> None:
    assert value('bit[4] a = "1100"; bit[4] b = a; b <<= 1; r[0:3] = b; r[4:7] = a;') == 0b1100_1000
    assert value('bit[8] a = "11110000"; a[0:1] = "11"; a[{5, 7}] = "00"; r = a;') == 0b0101_0011
    assert value('bit[8] a = "00000001"; r = rotl(a, 3); r[0] = 1;') == 0b0000_1001


def test_loops_run_over_ranges_sets_arrays_and_registers() -> None:
    assert (
        value("uint[8] total = 0; for uint i in [0:2:6] { total += i; } r = bit[8](total);") == 12
    )
    assert (
        value("uint[8] total = 0; for int i in {1, 5, 9} { total += i; } r = bit[8](total);") == 15
    )
    assert value("uint[8] n = 0; for uint i in [3:-1:0] { n = 2 * n + i; } r = bit[8](n);") == 34
    text = "array[int[8], 3] a = {1, 2, 4}; uint[8] total = 0; for int[8] e in a { total += e; }"
    assert value(text + "r = bit[8](total);") == 7
    text = (
        'bit[4] b = "1011"; uint[8] total = 0; for bit e in b { total = 2 * total + uint[1](e); }'
    )
    assert value(text + "r = bit[8](total);") == 0b1101


def test_break_and_continue_leave_nested_blocks() -> None:
    text = """uint[8] total = 0;
    for uint i in [0:9] { if (i == 2) { continue; } if (i == 5) { { break; } } total += i; }
    while (true) { total += 100; if (total > 100) { break; } }
    r = bit[8](total);"""
    assert value(text) == 108


def test_switch_chooses_a_case_or_the_default() -> None:
    cases = "case 1 { total = 5; } case 2, 3 { total = 6; } default { total = 7; }"
    found = [
        value(f"uint[8] total = 0; switch ({k}) {{ {cases} }} r = bit[8](total);") for k in range(5)
    ]
    assert found == [7, 5, 6, 6, 7]


def test_names_of_a_block_hide_outer_ones_and_end_with_it() -> None:
    assert (
        value("uint[8] total = 1; if (true) { uint[8] total = 9; total += 1; } r = bit[8](total);")
        == 1
    )


def test_subroutines_take_values_and_return_them() -> None:
    text = f"""{HEADER}const uint k = 3;
    def twice(uint[8] a) -> uint[8] {{ a = 2 * a + k; return a; }}
    def fill(mutable array[int[8], #dim = 1] a) {{ a[1] = 7; }}
    bit[8] r; uint[8] a = 5; array[int[8], 2] list = {{0, 0}};
    fill(list);
    r = bit[8](uint[8](twice(a) + a + list[1]));"""
    assert bits_of(text)["r"] == 13 + 5 + 7


def test_subroutines_act_on_the_qubits_that_they_are_given() -> None:
    text = f"""{HEADER}
    def flip(qubit[2] w, qubit v) {{ x w[1]; cx w[1], v; }}
    qubit[4] q; bit[4] r; flip(q[1:2], q[0]); r = measure q;"""
    assert bits_of(text)["r"] == 0b0101


def test_aliases_name_parts_of_registers() -> None:
    text = f"""{HEADER}qubit[4] q; qubit[2] w; bit[6] r;
    let a = q[{{3, 0}}] ++ w; x a[0]; x a[3];
    r[0:3] = measure q; r[4:5] = measure w;"""
    assert bits_of(text)["r"] == 0b101000


def test_inputs_come_from_the_caller() -> None:
    text = f"""{HEADER}input uint[4] n; input float a; qubit q; bit[4] r; bit c;
    rx(a) q; c = measure q; r = bit[4](n);"""
    assert bits_of(text, n=5, a=3.141592653589793) == {"r": 5, "c": 1}


def test_gates_may_have_loops_and_conditions_on_known_values() -> None:
    text = f"{HEADER}gate many(a) q {{ for uint i in [1:3] {{ if (i != 2) {{ rx(a) q; }} }} }}"
    assert bits_of(f"{text} qubit q; bit r; many(pi / 2) q; r = measure q;")["r"] == 1


def test_physical_qubits_have_their_own_numbers() -> None:
    assert bits_of(f"{HEADER}bit[2] r; x $2; cx $2, $0; r[0] = measure $0; r[1] = measure $1;") == {
        "r": 1
    }


def test_statements_without_effect_are_passed_over() -> None:
    text = f"""{HEADER}pragma something
    qubit[2] q; bit r; duration d = 100ns; stretch gap;
    @annotated
    x q[0];
    barrier q; delay[2 * d + gap] q[0]; box [1us] {{ delay[d] q[0]; cx q[0], q[1]; }}
    r = measure q[1];"""
    assert bits_of(text)["r"] == 1


def test_end_ends_the_program() -> None:
    assert bits_of(f"{HEADER}qubit q; bit r; r = measure q; end; x q; r = measure q;")["r"] == 0
