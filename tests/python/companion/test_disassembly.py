"""The text and the table of a program."""

from __future__ import annotations

from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from nimbrel import Opcode

LINES = {
    "0  reset    3 qubits": nb.reset(3),
    "0  h  q0": nb.h(0),
    "0  x  q1  controls q0, zeros q2": nb.x(1, controls=0, zeros=2),
    "0  x  q0, q1, q5": nb.x([5, 1, 0]),
    "0  y  q2-q4, q9": nb.y([2, 3, 4, 9]),
    "0  rx  q2  30 degrees, if flag 5": nb.rx(30, 2, flag=5),
    "0  rz  q2  -22.5 degrees, if not flag 5": nb.rz(-22.5, 2, flag=-5),
    "0  phase    90 degrees, controls q0, q1": nb.phase(90, (), controls=[0, 1]),
    "0  rooty_inv  q70  controls q130, never": nb.rooty_inv(70, controls=130, flag=-1),
    "0  swap  q0, q1": nb.swap(1, 0),
    "0  h  q1": nb.h(1, flag=1),
    "0..2  x  q3, q70, q130  controls q1, if not flag 7": nb.x([3, 70, 130], controls=1, flag=-7),
    "0  read  q0-q2  into flags 2 to 4": nb.read([0, 1, 2], 2),
    "0  read  q7  into flag -9": nb.read(7, -9),
    "0  read  q7": nb.read(7),
    "0..1  read  q7, q64  into flags 5 to 6": nb.read([7, 64], 5),
    "0  write  q0, q1, q5  value 110": nb.write([1, 0, 5], 0b101),
    "0  write  q0  value 0, into flag 3": nb.write(0, 0, 3),
    "0  clear  q4  if flag 2": nb.clear(4, flag=2),
    "0  free  q4": nb.free(4),
    "0  free  q4  check, event code 3": nb.free(4, check=True, event_code=3),
    "0  flag_nand    flag 4 = not (2 and not 3)": nb.flag_nand(2, -3, 4),
    "0  flag_nand    flag 4 = 1 and 2, if flag 9": nb.flag_nand(1, 2, -4, flag=9),
    "0  ppr  X0 Y1 Z2  45 degrees, controls q5, zeros q6": nb.ppr(
        45, [0, 1], [1, 2], controls=5, zeros=6
    ),
    "0  ppr  Z0  1 degrees, controls q63": nb.ppr(1, [], 0, controls=63),
    "0..1  ppr  X0 Z70  45 degrees": nb.ppr(45, 0, 70),
    "0  ppm  Y0  inverted, into flag -3": nb.ppm(0, 0, -3, sign=-1),
    "0  ppm  X0": nb.ppm(0, []),
    "0  pcp  X0 Z1  product 1 of 2": nb.pcp(1, 2, 0, 1),
    "0  jump_fwd    to label 3, if not flag 4": nb.jump_fwd(3, flag=-4),
    "0  label    label 3": nb.label(3),
    "0  open_event    event 7": nb.open_event(7),
    "0  close_event    event 18446744073709549568": nb.close_event(2**64 - 2048),
    "0  callback    key -3": nb.record(Opcode.CALLBACK, read_flag=-3),
    "0  fetch_request": nb.fetch_request(2, 3),
    "0  z_nop": nb.record(Opcode.Z_NOP, target_mask=5),
    "0  marker 10008003": nb.record(Opcode.MARKER_10008003, target_mask=5),
    "0  0x0000000000000123": nb.record(0x123, target_mask=5),
    "0  extend  q64, q65  zeros q3": nb.record(
        Opcode.EXTEND, target_mask=3, target_offset=64, cond_mask=8, cond_neg_mask=8
    ),
}


NUMBERS = {
    float("nan"): ("nan", "-648 of -2147483", ""),
    float("inf"): ("inf", "-648 of -2147483", ""),
    float("-inf"): ("-inf", "-648 of -2147483", ""),
    1e300: ("1e+300", "-648 of -2147483", ""),
    -0.0: ("-0", "0 of 0", ""),
    -1.5: ("-1.5", "-1 of 0", "  inverted"),
    -2003.0: ("-2003", "-3 of -2", ""),
}
"""The word `angle` in degrees, as a position in a batch and as the sign of a measured product."""


@pytest.mark.parametrize("number", NUMBERS)
def test_every_number_can_be_shown(number: float) -> None:
    degrees, position, sign = NUMBERS[number]
    codes = (Opcode.RX, Opcode.PCP, Opcode.PPM)
    records = nb.program(*(nb.record(code, target_mask=1, angle=number) for code in codes))
    assert str(records).splitlines() == [
        f"0  rx   q0  {degrees} degrees",
        f"1  pcp  X0  product {position}",
        f"2  ppm  X0{sign}",
    ]


@pytest.mark.parametrize("line", LINES)
def test_one_operation_is_one_line(line: str) -> None:
    assert str(nb.program(LINES[line])) == line


def test_the_columns_of_several_lines_are_aligned() -> None:
    records = nb.program(nb.reset(100), nb.x([3, 70]), nb.read(range(20), 2), nb.swap(0, 1))
    assert str(records).splitlines() == [
        "   0  reset           100 qubits",
        "1..2  x      q3, q70",
        "   3  read   q0-q19   into flags 2 to 21",
        "   4  swap   q0, q1",
    ]


def test_an_extension_record_with_a_condition_or_before_a_label_has_its_own_line() -> None:
    extension = nb.x([3, 70])[:1]
    conditional = extension.copy()
    conditional["cond_flag"] = 6
    records = nb.program(conditional, nb.x(3), extension, nb.label(1), nb.x(3))
    assert str(records).splitlines() == [
        "0  extend  q70  if flag 6",
        "1  x       q3",
        "2  extend  q70",
        "3  label        label 1",
        "4  x       q3",
    ]


def test_a_long_program_shows_its_ends() -> None:
    lines = str(nb.h.each(range(1000))).splitlines()
    assert len(lines) == 51
    assert lines[24].split() == ["24", "h", "q24"]
    assert lines[25].split() == ["...", "950", "records", "left", "out"]
    assert lines[26].split() == ["975", "h", "q975"]


def test_a_cut_leaves_an_operation_whole() -> None:
    wide = nb.x([0, 70])
    lines = str(nb.program(nb.h(0), *[wide] * 50)).splitlines()
    assert "extend" not in "\n".join(lines)
    left_out = next(line for line in lines if line.split()[0] == "...")
    shown = [line.split()[0] for line in lines if line is not left_out]
    records = sum(2 if ".." in place else 1 for place in shown) + int(left_out.split()[1])
    assert records == 101


def test_sixty_operations_are_shown_whole() -> None:
    assert len(str(nb.h.each(range(60))).splitlines()) == 60


def test_an_empty_program_is_an_empty_text() -> None:
    assert str(nb.program()) == ""


def test_a_part_of_a_program_prints_like_a_program() -> None:
    records = nb.program(nb.h(0), nb.x(1), nb.y(2))
    assert str(records[1:]).splitlines() == ["0  x  q1", "1  y  q2"]
    assert str(records[::-2]).splitlines() == ["0  y  q2", "1  h  q0"]


def test_other_arrays_of_the_class_print_as_arrays() -> None:
    records = nb.program(nb.rx(30, 0), nb.rx(60, 1))
    assert str(records["angle"]) == "[30. 60.]"
    assert str(records.view(np.uint64)[:2]) == str(np.array([Opcode.RX, 1], dtype=np.uint64))
    assert str(records.reshape(1, 2)) == str(records.reshape(1, 2).view(np.ndarray))


def test_a_notebook_shows_a_table() -> None:
    table = nb.program(nb.reset(2), nb.x(1, controls=0))._repr_html_()
    assert table is not None
    assert table.count("<tr>") == 3
    assert "<td>1</td><td>x</td><td>q1</td><td>controls q0</td>" in table


def test_a_notebook_has_no_table_for_other_arrays() -> None:
    matrix: Any = nb.program(nb.h(0), nb.h(1)).reshape(1, 2)
    assert matrix._repr_html_() is None
