"""Thousands of random programs on the bit filter and on a plain model, compared in what shows."""

import random
import re
from collections import Counter
from types import ModuleType

import numpy as np
import pytest

from models.bit import REFUSED, BitModel
from models.opcodes import FREE, LABEL, READ, RESET
from models.program import ModelError
from models.wire import WORD, Record, pack, tagged
from programs.bit import RecordSource, program_lengths, random_width, wild_record
from support.driver import BitFilter, failure_of, open_bit_filter

PROGRAMS_EACH = 100
MARKER = 0x10000000


# Where flag numbers are compared after every call, 32 at a time: around the constants, and on both
# sides of where the odd numbers of the programs land in the table.
FLAG_WINDOWS = [
    *range(-288, 288, 32),
    99_999_990,
    -100_000_010,
    47_483_640,
    -47_483_670,
    54_775_790,
    -54_775_825,
]


class Pair:
    """The engine's filter and the model's, driven with the same records."""

    def __init__(self, bits: BitFilter, debug: bool) -> None:
        self.bits = bits
        self.model = BitModel(debug)
        bits.debug(int(debug))

    def run(self, records: list[Record]) -> None:
        """Runs one call on both sides; compares the failure and all that can be seen afterwards."""
        packed = np.frombuffer(pack(records), dtype=np.uint8).reshape(len(records), 88)
        put = self.bits.engine.put_instructions
        answer = failure_of(lambda: put(self.bits.handle, packed, len(records)))
        assert answer == failure_of(lambda: self.model.run(records))
        self.compare()

    def compare(self) -> None:
        assert failure_of(self.bits.state) == failure_of(self.model.state)
        for first in FLAG_WINDOWS:
            expected = sum(self.model.flags.get(first + bit) << bit for bit in range(32))
            assert self.bits.flags(first, 32) == expected, f"flags from {first} on"
        expected_events, self.model.events = self.model.events, []
        assert self.bits.events() == expected_events

    def compare_peeks(self, value: int, mask: int) -> None:
        """Peek and postselect see the low 32 bits of the first word."""
        engine, handle = self.bits.engine, self.bits.handle
        if not self.model.bits or not mask:
            return
        fits = not (value ^ self.model.bits[0]) & mask
        assert engine.peek_read_probability(handle, value, mask, 0.0) == float(fits)
        selected = failure_of(lambda: engine.postselect(handle, value, mask))
        no_match = "RuntimeError('qc.postselect() no non-zero terms match the desired value.')"
        assert selected == (None if fits else no_match)


def close_jump(model: BitModel) -> list[Record]:
    """Ends a skip that is still going on, and drops extensions that still wait for a record."""
    return [tagged(LABEL, target_mask=model.open_label), tagged(MARKER)]


def read_all_words(model: BitModel) -> list[Record]:
    """Reads whole words, also past the last qubit, each into 64 flags of its own."""
    return [
        tagged(READ, target_mask=WORD, target_offset=64 * word, read_flag=-250 + 64 * word)
        for word in range(len(model.bits))
    ]


def free_all_bits(model: BitModel) -> list[Record]:
    """Frees every bit with the check, so that events tell which ones a gate had left at 1."""
    return [
        tagged(FREE, target_mask=1 << bit, target_offset=64 * word, cond_mask=16, read_flag=bit)
        for word in range(len(model.bits))
        for bit in range(64)
    ]


def drive(engine: ModuleType, rng: random.Random) -> None:
    """One filter's life: a reset as a rule, random calls, and a look at every bit at the end."""
    width = random_width(rng)
    source = RecordSource(rng, width)
    with open_bit_filter(engine) as bits:
        pair = Pair(bits, debug=rng.random() < 0.9)
        if rng.random() < 0.98:
            pair.run([tagged(RESET, target_mask=width)])
        for length in program_lengths(rng):
            pair.run(source.records(length))
            pair.compare_peeks(rng.getrandbits(32), 1 << rng.randrange(32))
        pair.run(close_jump(pair.model))
        pair.run(rng.choice((read_all_words, free_all_bits))(pair.model))


@pytest.mark.parametrize("batch", range(40))
def test_random_programs(engine: ModuleType, rng: random.Random, batch: int) -> None:  # noqa: ARG001
    for _ in range(PROGRAMS_EACH):
        drive(engine, rng)


@pytest.mark.parametrize("batch", range(10))
def test_wild_records(engine: ModuleType, rng: random.Random, batch: int) -> None:  # noqa: ARG001
    for _ in range(20):
        with open_bit_filter(engine) as bits:
            pair = Pair(bits, debug=True)
            pair.run([tagged(RESET, target_mask=random_width(rng))])
            for _ in range(30):
                pair.run([wild_record(rng) for _ in range(rng.randint(1, 3))])
            pair.run(close_jump(pair.model))
            pair.run(read_all_words(pair.model))


def test_the_programs_reach_every_failure(rng: random.Random) -> None:
    """The random programs would compare little if they failed at once, or never."""
    failures: Counter[str] = Counter()
    num_events = 0
    for _ in range(2000):
        width = random_width(rng)
        model = BitModel(debug_qubits=True)
        try:
            model.run([tagged(RESET, target_mask=width), *RecordSource(rng, width).records(40)])
        except ModelError as error:
            failures[re.sub("0x[0-9a-f]+|-?[0-9]+", "#", str(error))] += 1
        num_events += len(model.events)
    assert 100 < failures.total() < 1500
    assert len(failures) == len(set(REFUSED.values())) + 8
    assert num_events > 200
