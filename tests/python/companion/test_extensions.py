"""Which record an extension reaches, as `Simulator.run` judges the two."""

from __future__ import annotations

import nimbrel as nb
import pytest
from nimbrel import Opcode

from support.program_check import BIT, CLIFFORD, LONG, filler, outside, refused

TARGET = nb.record(Opcode.EXTEND, target_mask=1, target_offset=64)
VALUE = nb.record(Opcode.EXTEND, cond_mask=2**63, cond_offset=64)
Z_ON_ONE_CONTROL = nb.record(Opcode.Z, cond_mask=1)
INEXACT = (
    "record {}: a controlled Z changes no sign on a Clifford filter; write cz(a, b), "
    "or make the simulator with allow_inexact_controls=True"
)

lengths = pytest.mark.parametrize("count", [0, LONG], ids=["short", "long"])
between = pytest.mark.parametrize(
    "records",
    [
        nb.label(9),
        nb.jump_fwd(9, flag=-1),
        nb.record(Opcode.JUMP_FAMILY),
        nb.record(0xABCD16),
        nb.program(nb.label(9), nb.label(8)),
    ],
    ids=["label", "jump", "family", "foreign", "two"],
)


@lengths
@between
def test_an_extension_passes_by_the_jump_family(records: nb.RecordArray, count: int) -> None:
    with nb.Simulator(CLIFFORD) as sim:
        sim.run(nb.reset(70))
        text = INEXACT.format(count + 1 + len(records))
        refused(sim, text, filler(count), TARGET, records, Z_ON_ONE_CONTROL)


@lengths
def test_a_closed_jump_before_an_extension_skips_nothing(count: int) -> None:
    with nb.Simulator(CLIFFORD) as sim:
        sim.run(nb.reset(70), nb.jump_fwd(9))
        parts = (nb.label(9), TARGET, nb.label(9), Z_ON_ONE_CONTROL)
        refused(sim, INEXACT.format(count + 3), filler(count), *parts)


@lengths
def test_an_extension_that_a_jump_may_skip_is_not_counted(count: int) -> None:
    with nb.Simulator(CLIFFORD) as sim:
        sim.run(nb.reset(70), filler(count))
        sim.run(filler(count), nb.jump_fwd(9), TARGET, nb.label(9), Z_ON_ONE_CONTROL)
        sim.run(nb.jump_fwd(9))
        sim.run(filler(count), TARGET, nb.label(9), Z_ON_ONE_CONTROL)


def test_an_extension_of_an_earlier_program_is_not_known() -> None:
    with nb.Simulator(CLIFFORD) as sim:
        sim.run(nb.reset(70), TARGET)
        sim.run(Z_ON_ONE_CONTROL)


@lengths
@between
def test_a_value_reaches_a_write_past_the_jump_family(records: nb.RecordArray, count: int) -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(70), filler(count), VALUE, records, nb.write(0, 1))
        assert sim.bits().startswith("1")
        if nb.Opcode.JUMP_FWD not in records["opcode"]:
            text = outside(count, 127, 70)
            refused(sim, text, filler(count), VALUE, records, nb.x(0))


def test_a_value_may_jump_past_a_gate() -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(70))
        sim.run(VALUE, nb.jump_fwd(9), nb.x(0), nb.label(9), nb.write(0, 1))
        assert sim.bits().startswith("1")
