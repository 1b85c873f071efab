"""The flags that `sample` returns, and the flags of the run before."""

from __future__ import annotations

import nimbrel as nb
import pytest
from nimbrel import Opcode

WIDE = nb.record(Opcode.EXTEND, target_mask=1, target_offset=64)
CLIFFORD = "StreamCliffordQPU"


def test_a_record_of_the_jump_family_does_not_hide_the_flags_of_an_extension() -> None:
    family = nb.record(Opcode.JUMP_FAMILY)
    records = nb.program(nb.reset(100), nb.x(64), WIDE, family, nb.read(0, 2))
    samples = nb.sample(records, 1)
    assert (samples.read_flags, samples.counts()) == ((2, 3), {"10": 1})


@pytest.mark.parametrize("flag", [100_000_000, 100_000_001, -100_000_000])
def test_a_bit_whose_place_is_the_number_of_a_constant(flag: int) -> None:
    records = nb.program(nb.reset(1), nb.x(0), nb.read(0, flag))
    samples = nb.sample(records, 1)
    assert samples.read_flags == (abs(flag),)
    assert samples.counts() == {"1" if flag > 0 else "0": 1}


def test_an_extension_that_a_jump_skips_leaves_no_flag_of_the_run_before() -> None:
    records = nb.program(
        *[nb.reset(100), nb.h(0), nb.x(64), nb.read(0, 2)],
        *[nb.jump_fwd(1, flag=2), WIDE, nb.label(1), nb.read(0, 3)],
    )
    samples = nb.sample(records, 200, read_flags=[2, 4], filter=CLIFFORD)
    assert set(samples.counts()) == {"01", "10"}
