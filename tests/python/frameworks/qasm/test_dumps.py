"""Programs written as OpenQASM 3 mean the same when they are read again."""

from __future__ import annotations

import random
from typing import Any

import nimbrel as nb
import numpy as np
import pytest

from support.qasm_programs import (
    assert_same_up_to_phase,
    final_state,
    qasm,
    up_to_phase,
)

QUBITS = 4


def prepared(*gates: nb.RecordArray) -> nb.RecordArray:
    """A program that begins with a state without symmetries."""
    turns = [nb.ry(20 + 30 * k, k) for k in range(QUBITS)]
    mixed = [nb.x(k + 1, controls=k) for k in range(QUBITS - 1)]
    phases = [nb.phase(10 + 25 * k, k) for k in range(QUBITS)]
    return nb.program(nb.reset(QUBITS), *turns, *mixed, *phases, *gates)


ONE: list[Any] = [
    nb.x,
    nb.y,
    nb.z,
    nb.h,
    nb.s,
    nb.s_inv,
    nb.t,
    nb.t_inv,
    nb.rootx,
    nb.rootx_inv,
    nb.rooty,
]
ONE += [nb.rooty_inv, nb.lelbow, nb.relbow]
TURNING: list[Any] = [nb.rx, nb.ry, nb.rz, nb.phase]
GATES = {
    **{f"{gate.__name__}": gate([0, 2]) for gate in ONE},
    **{f"controlled {gate.__name__}": gate(1, controls=3) for gate in ONE},
    **{f"negated {gate.__name__}": gate([0, 2], controls=1, zeros=3) for gate in ONE},
    **{f"{gate.__name__}": gate(33.3, [0, 2]) for gate in TURNING},
    **{f"controlled {gate.__name__}": gate(-75, 1, controls=3) for gate in TURNING},
    **{f"negated {gate.__name__}": gate(0.1, 2, controls=[0, 1], zeros=3) for gate in TURNING},
    "z without targets": nb.z((), controls=[1, 2]),
    "swap": nb.swap(0, 3),
    "controlled swap": nb.swap(0, 3, controls=1, zeros=2),
    "ppr": nb.ppr(17, [0, 1], [1, 2]),
    "controlled ppr": nb.ppr(17, [0], [2], controls=1, zeros=3),
    "never": nb.x(0, flag=-1),
    "always": nb.x(0, flag=1),
}


@pytest.mark.parametrize("name", GATES)
def test_a_gate_is_the_same_after_writing_and_reading(name: str) -> None:
    records = prepared(GATES[name])
    again = qasm.loads(qasm.dumps(records)).program
    assert_same_up_to_phase(final_state(again), final_state(records))


CLASSICAL = {
    "read": nb.read([0, 2, 3], 2),
    "read apart": nb.read([0, 3], 5),
    "read inverted": nb.read([1], -4),
    "read across zero": nb.read([0, 1, 2, 3], -2),
    "ppm": nb.ppm([0, 1], [1, 2], 3),
    "ppm inverted": nb.ppm([0], [3], 3, sign=-1),
    "condition": nb.program(nb.read(0, 2), nb.x(1, flag=2), nb.read([1, 2], 3)),
    "negative condition": nb.program(nb.read(0, 2), nb.x(1, flag=-2), nb.read([1, 2], 3)),
    "clear": nb.program(nb.clear([0, 3]), nb.read(range(4), 2)),
    "write": nb.program(nb.write([0, 3], 2), nb.read(range(4), 2)),
    "free": nb.program(nb.free(1), nb.read(range(4), 2)),
    "reset": nb.program(nb.read(0, 2), nb.reset(4), nb.x(1), nb.read(range(4), 3)),
    "nand": nb.program(nb.read([0, 1], 2), nb.flag_nand(2, -3, 4), nb.flag_nand(2, 1, -5)),
    "nand of constants": nb.program(nb.flag_nand(1, 1, 2), nb.flag_nand(1, -1, 3)),
    "jump": nb.program(nb.read(0, 2), nb.jump_fwd(7, flag=2), nb.x(1), nb.label(7), nb.read(1, 3)),
    "else": nb.program(
        *(nb.read(0, 2), nb.jump_fwd(1, flag=-2), nb.x([1, 2]), nb.jump_fwd(2)),
        *(nb.label(1), nb.x(3), nb.label(2), nb.read([1, 2, 3], 3)),
    ),
    "nested": nb.program(
        *(nb.read([0, 1], 2), nb.jump_fwd(1, flag=2), nb.x(2), nb.jump_fwd(2, flag=-3)),
        *(nb.x(3), nb.label(2), nb.label(1), nb.read([2, 3], 4)),
    ),
}


@pytest.mark.parametrize("name", CLASSICAL)
def test_flags_are_the_same_after_writing_and_reading(name: str) -> None:
    records = prepared(CLASSICAL[name])
    read = qasm.loads(qasm.dumps(records))
    again, flags = read.program, read.bits["c"]
    with nb.DenseSimulator() as sim:
        assert ends(sim, records, flags, 20) <= ends(sim, again, flags, 2000)


def ends(
    sim: nb.DenseSimulator, program: nb.RecordArray, flags: range, runs: int
) -> set[tuple[int, bytes]]:
    """The flags and the states, up to a phase, with which some runs end."""
    found = set()
    for number in range(runs):
        nb.seed(number)
        sim.run(program)
        state = up_to_phase(np.array(sim.state())).round(6) + 0.0
        found.add((sim.flags(flags[0], len(flags)), state.tobytes()))
    return found


def test_a_wide_clifford_program_is_the_same_after_writing_and_reading() -> None:
    records = nb.program(
        nb.reset(130), nb.h(0), *(nb.x(k + 1, controls=k) for k in range(129)),
        nb.cz(3, 100), nb.read(range(130), 2),
    )  # fmt: skip
    again = qasm.loads(qasm.dumps(records))
    samples = nb.sample(again.program, 40, read_flags=again.bits["c"])
    assert samples.filter_name == "StreamCliffordQPU"
    assert {row.sum() for row in samples.bits().astype(int)} == {0, 130}


@pytest.mark.parametrize(
    ("records", "message"),
    [
        ([nb.x(0)], "record 0: a program in OpenQASM 3 begins with a reset of its register"),
        ([], "record 0: a program in OpenQASM 3 begins with a reset of its register"),
        (
            [nb.reset(2), nb.h(0), nb.pcp(0, 1, 0, 1)],
            "record 2: PCP has no form in OpenQASM 3",
        ),
        ([nb.reset(2), nb.reset(3)], "record 1: RESET changes the register from 2 to 3 qubits"),
        (
            [nb.reset(2), nb.write(0, 1, 5)],
            "record 1: WRITE into read flags has no form in OpenQASM 3",
        ),
        (
            [nb.reset(2), nb.free(0, check=True)],
            "record 1: FREE with a check has no form in OpenQASM 3",
        ),
        ([nb.reset(2), nb.open_event(3)], "record 1: OPEN_EVENT has no form in OpenQASM 3"),
        ([nb.reset(2), nb.jump_fwd(3, flag=2)], "record 1: JUMP_FWD has no label behind it"),
        (
            [nb.reset(2), nb.jump_fwd(3), nb.x(0), nb.label(3)],
            "record 1: JUMP_FWD without a condition has no form in OpenQASM 3",
        ),
        (
            [nb.reset(2), nb.jump_fwd(3, flag=2), nb.jump_fwd(4, flag=2), nb.label(3)],
            "record 3: LABEL 3 ends a jump that another jump is open in",
        ),
        (
            [nb.reset(2), nb.record(nb.Opcode.CALLBACK)],
            "record 1: CALLBACK has no form in OpenQASM 3",
        ),
        ([nb.reset(2), nb.record(77)], "record 1: the opcode 0x4d is unknown"),
        (
            [nb.reset(2), nb.rx(float("inf"), 0)],
            "record 1: the angle inf has no form in OpenQASM 3",
        ),
    ],
)
def test_what_has_no_form_is_refused_by_name_and_index(
    records: list[nb.RecordArray], message: str
) -> None:
    with pytest.raises(ValueError, match="record") as raised:
        qasm.dumps(nb.program(*records))
    assert str(raised.value) == message


def test_angles_are_written_to_the_last_digits(rng: random.Random) -> None:
    degrees = [0.0, 1e-9, *(rng.uniform(-400, 400) for _ in range(200))]
    records = nb.program(nb.reset(1), *(nb.ry(angle, 0) for angle in degrees))
    again = qasm.loads(qasm.dumps(records)).program
    np.testing.assert_allclose(again["angle"][1:], np.array(degrees), rtol=4e-16, atol=0)


def test_multiples_of_an_eighth_of_a_turn_are_written_exactly() -> None:
    degrees = [45.0 * k for k in range(-16, 17) if k]
    records = nb.program(nb.reset(1), *(nb.ry(angle, 0) for angle in degrees))
    again = qasm.loads(qasm.dumps(records)).program
    np.testing.assert_array_equal(again["angle"][1:], np.array(degrees))
