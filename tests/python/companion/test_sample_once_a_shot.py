"""Programs whose outcomes look as if one state gave them all, but do not."""

from __future__ import annotations

import nimbrel as nb
import pytest
from nimbrel import Opcode

CLIFFORD, DENSE = "StreamCliffordQPU", "StreamQPU"
WANTED = [2, 3]
NEXT_WORD = nb.record(Opcode.EXTEND, target_mask=1, target_offset=64)
PROGRAMS = {
    "extensions that a flag operation ends": [
        *[NEXT_WORD, nb.flag_nand(1, 1, 9), nb.x(0), nb.read([0, 64], 2)],
    ],
    "a measurement with an offset inside a word": [
        *[nb.x(70), nb.record(Opcode.READ, target_mask=1, target_offset=70, read_flag=2)],
    ],
    "a gate with an offset inside a word behind a measurement": [
        *[nb.read(70, 2), nb.record(Opcode.X, target_mask=1, target_offset=70)],
    ],
    "a value written in the second word": [nb.write(70, 1), nb.x(71, controls=70), nb.read(71, 2)],
}


@pytest.mark.parametrize("name", PROGRAMS)
def test_the_outcome_is_that_of_a_run(name: str) -> None:
    records = nb.program(nb.reset(100), *PROGRAMS[name])
    with nb.Simulator(CLIFFORD) as simulator:
        simulator.run(records)
        expected = f"{simulator.flags(2, 2):02b}"
    samples = nb.sample(records, 3, read_flags=WANTED, filter=CLIFFORD)
    assert samples.counts() == {expected: 3}


@pytest.mark.parametrize(
    ("parts", "text"),
    [
        ([nb.record(Opcode.EXTEND, target_mask=2), nb.read(0, 2)], "qc.extend"),
        ([nb.record(Opcode.WRITE, target_mask=3, cond_mask=7)], "value 7 lies outside"),
        ([nb.h(0), nb.record(Opcode.WRITE, target_mask=3, cond_mask=7)], "value 7 lies outside"),
    ],
    ids=["an extension", "a first write", "a last write"],
)
def test_an_error_of_a_record_that_no_outcome_needs_is_raised(
    parts: list[nb.Program], text: str
) -> None:
    with pytest.raises(RuntimeError, match=text):
        nb.sample(nb.program(nb.reset(2), *parts), 1, filter=DENSE)


def test_a_first_write_in_the_second_word_is_a_gate() -> None:
    records = nb.program(nb.reset(100), nb.write(70, 1), nb.h(0), nb.read([0, 70], 2))
    first, second = (
        nb.sample(records, 20, filter=CLIFFORD, seed=5).values().tolist() for _ in range(2)
    )
    assert first == second


def test_a_tableau_that_is_that_of_no_state_is_measured_in_every_run() -> None:
    # The gate turns the generator X into one without letters.
    own = nb.record(Opcode.X, target_mask=1, cond_mask=1)
    records = nb.program(nb.reset(1), nb.h(0), own, nb.read(0, 2))
    with pytest.raises(ValueError, match="record 3 sets or measures qubits among targets that are"):
        nb.sample(records, 1, filter=CLIFFORD, seed=1)
    assert len(nb.sample(records, 4, filter=CLIFFORD)) == 4
