"""Controls that a Clifford filter does not carry out exactly are refused by `Simulator.run`."""

from __future__ import annotations

from collections.abc import Callable

import nimbrel as nb
import numpy as np
import pytest
from nimbrel import Opcode

from support import program_check
from support.program_check import CLIFFORD, LONG, AmplitudeSimulator, filler

Builder = Callable[[], nb.RecordArray]

ALLOWED_BY = "or make the simulator with allow_inexact_controls=True"
FAR = nb.record(Opcode.EXTEND, target_mask=1, target_offset=64)
FAR_CONTROL = nb.record(Opcode.EXTEND, cond_mask=1, cond_offset=64)

CONTROLLED_Z: dict[str, Builder] = {
    "z": lambda: nb.z(1, controls=0),
    "z, two targets": lambda: nb.z([1, 2], controls=0),
    "z, far": lambda: nb.z(99, controls=70),
    "z on two controls": lambda: nb.z((), controls=[0, 99]),
    "phase": lambda: nb.phase(180.0, 1, controls=0),
    "phase on two controls": lambda: nb.phase(180.0, (), controls=[1, 0]),
    "flag -1": lambda: nb.z(1, controls=0, flag=-1),
}
EXACT: dict[str, Builder] = {
    "z": lambda: nb.z([0, 1]),
    "z on one control": lambda: nb.z((), controls=3),
    "phase on one control": lambda: nb.phase(180.0, (), controls=3),
    "rz": lambda: nb.rz(180.0, 1),
    "cnot": lambda: nb.x([1, 2], controls=0),
    "cz": lambda: nb.cz(1, 99),
    "negation without a control": lambda: nb.record(Opcode.X, target_mask=1, cond_neg_mask=2),
    "negation of another qubit": lambda: nb.record(
        Opcode.X, target_mask=1, cond_mask=2, cond_neg_mask=5
    ),
    "product": lambda: nb.record(Opcode.PPM, target_mask=1, cond_mask=2, cond_neg_mask=2),
    "value": lambda: nb.record(Opcode.WRITE, target_mask=3, cond_mask=2, cond_neg_mask=2),
}
NEGATED: dict[str, Builder] = {
    "x": lambda: nb.x(1, zeros=0),
    "x, far": lambda: nb.x(3, zeros=99),
    "z": lambda: nb.z(1, zeros=0),
    "z on a negated control": lambda: nb.z((), zeros=0),
    "phase": lambda: nb.phase(180.0, 1, zeros=0),
    "rz": lambda: nb.rz(180.0, 1, zeros=0),
}
# The engine reports these itself.
REFUSED_BY_THE_ENGINE: dict[str, tuple[Builder, str]] = {
    "z, two controls": (
        lambda: nb.z(2, controls=[0, 1]),
        "qc.z() can only have one condition for Clifford sim.",
    ),
    "z, three controls": (
        lambda: nb.z((), controls=[0, 1, 2]),
        "qc.z() can only have one condition for Clifford sim.",
    ),
    "s": (
        lambda: nb.s(1, zeros=0),
        "qc.s() can't have conditions in the Clifford sim.",
    ),
    "phase of another angle": (
        lambda: nb.phase(-180.0, 1, controls=0),
        "qc.phase() has not been implemented for the Clifford sim.",
    ),
}

long_or_short = pytest.mark.parametrize("count", [0, LONG], ids=["short", "long"])


def controlled_z(index: int, instead: str = "write cz(a, b)") -> str:
    return (
        f"record {index}: a controlled Z changes no sign on a Clifford filter; "
        f"{instead}, {ALLOWED_BY}"
    )


def negated(index: int) -> str:
    return (
        f"record {index}: a negated control counts as a control on a Clifford filter; "
        f"write x(control) before and after the gate and leave the control plain, {ALLOWED_BY}"
    )


def refused(text: str, count: int, *parts: nb.RecordArray) -> None:
    """Runs `count` other records and the parts on 100 qubits, and expects this refusal."""
    with nb.Simulator(CLIFFORD) as sim:
        sim.run(nb.reset(100), nb.h([0, 1]))
        before = sim.generators()
        program_check.refused(sim, text, filler(count), *parts)
        assert sim.generators() == before


@long_or_short
@pytest.mark.parametrize("build", CONTROLLED_Z.values(), ids=CONTROLLED_Z)
def test_a_controlled_z_is_refused(build: Builder, count: int) -> None:
    records = build()
    refused(controlled_z(count + len(records) - 1), count, records)


@long_or_short
def test_a_controlled_half_turn_about_z_needs_a_phase_too(count: int) -> None:
    instead = "write cz(a, b) and s_inv(a), a being the control"
    refused(controlled_z(count, instead), count, nb.rz(180.0, 1, controls=0))


@long_or_short
def test_a_half_turn_on_two_controls_needs_no_phase(count: int) -> None:
    record = nb.record(Opcode.RZ, angle=180.0, cond_mask=3)
    refused(controlled_z(count), count, record)


@long_or_short
@pytest.mark.parametrize("build", NEGATED.values(), ids=NEGATED)
def test_a_negated_control_is_refused(build: Builder, count: int) -> None:
    records = build()
    refused(negated(count + len(records) - 1), count, records)


@long_or_short
def test_qubits_of_extension_records_count(count: int) -> None:
    alone = nb.record(Opcode.Z, cond_mask=1)
    refused(controlled_z(count + 1), count, FAR, alone)
    refused(controlled_z(count + 1), count, FAR_CONTROL, alone)


@pytest.mark.parametrize("place", [4096, 4097, 8193])
def test_an_extension_may_stand_in_another_piece_of_the_program(place: int) -> None:
    alone = nb.record(Opcode.Z, cond_mask=1)
    refused(controlled_z(place), place - 1, FAR, alone)


@long_or_short
@pytest.mark.parametrize("build", EXACT.values(), ids=EXACT)
def test_what_is_exact_is_let_pass(build: Builder, count: int) -> None:
    with nb.Simulator(CLIFFORD) as sim:
        sim.run(nb.reset(100), filler(count), build())


@pytest.mark.parametrize(
    ("build", "text"), REFUSED_BY_THE_ENGINE.values(), ids=REFUSED_BY_THE_ENGINE
)
def test_what_the_engine_refuses_is_left_to_it(build: Builder, text: str) -> None:
    with nb.Simulator(CLIFFORD) as sim:
        sim.run(nb.reset(100))
        with pytest.raises(RuntimeError) as caught:
            sim.run(build())
        assert caught.value.args == (text,)


@pytest.mark.parametrize("build", (CONTROLLED_Z | NEGATED).values(), ids=CONTROLLED_Z | NEGATED)
def test_the_filters_own_rule_can_be_asked_for(build: Builder) -> None:
    with nb.Simulator(CLIFFORD, allow_inexact_controls=True) as sim:
        sim.run(nb.reset(100), build(), filler(LONG), build())


def test_both_choices_are_independent() -> None:
    with nb.Simulator(CLIFFORD, check_qubits=False) as sim:
        sim.run(nb.reset(2))
        with pytest.raises(ValueError, match="a controlled Z changes no sign"):
            sim.run(nb.z(1, controls=0))
    with nb.Simulator(CLIFFORD, allow_inexact_controls=True) as sim:
        sim.run(nb.reset(2))
        with pytest.raises(ValueError, match="qubit 2 lies outside"):
            sim.run(nb.z(2, controls=0))


@pytest.mark.parametrize("simulator", [nb.DenseSimulator, nb.SparseSimulator])
def test_other_filters_take_them(simulator: AmplitudeSimulator) -> None:
    with simulator() as sim:
        sim.run(nb.reset(3), nb.h([0, 1]), nb.z(1, controls=0), nb.x(2, zeros=[0, 1]))
        assert np.allclose([sim.value_of(k) for k in (4, 1, 2, 3)], [0.5, 0.5, 0.5, -0.5])
