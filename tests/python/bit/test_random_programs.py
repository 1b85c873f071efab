"""Random programs on the bit filter and on a plain model, compared in everything observable."""

import contextlib
import re
from collections import Counter
from collections.abc import Iterator
from types import ModuleType

import numpy as np
import pytest

from models.bit import REFUSED, BitModel
from models.opcodes import FREE, LABEL, MARKER_10000000, READ, RESET
from models.wire import WORD, Record, pack, tagged
from programs.bit import RecordSource, random_width, wild_record
from programs.drawn import DrawnRandom, check_programs, noting
from support.driver import BitFilter, failure_of, open_bit_filter
from support.flag_windows import FlagWindows

BATCHES = 3
PROGRAMS_EACH = 500
CALLS = 3  # on average
RECORDS = 12  # of a call, on average


# First flags of the windows of 32 flags that are compared after every call: around the constants,
# and around the table positions of the unusual flag numbers that the programs use.
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
    """The engine's filter and its model. Both run the same records."""

    def __init__(self, bits: BitFilter, debug: bool) -> None:
        self.bits = bits
        self.model = BitModel(debug)
        self.history: list[Record] = []
        self.failures: list[str] = []
        self.num_events = 0
        self._flag_windows = FlagWindows(FLAG_WINDOWS)
        bits.debug(int(debug))

    def run(self, records: list[Record]) -> None:
        """Runs one call on both sides, then compares the error and everything observable."""
        self.history += records
        packed = np.frombuffer(pack(records), dtype=np.uint8).reshape(len(records), 88)
        put = self.bits.engine.put_instructions
        answer = failure_of(lambda: put(self.bits.handle, packed, len(records)))
        expected = failure_of(lambda: self.model.run(records))
        assert answer == expected
        if expected is not None:
            self.failures.append(expected)
        self.compare()

    def compare(self) -> None:
        assert failure_of(self.bits.state) == failure_of(self.model.state)
        self._flag_windows.compare(self.bits, self.model.flags)
        expected_events, self.model.events = self.model.events, []
        self.num_events += len(expected_events)
        assert self.bits.events() == expected_events

    def compare_peeks(self, value: int, mask: int) -> None:
        """Compares peek and postselect, which use the low 32 bits of the first word."""
        engine, handle = self.bits.engine, self.bits.handle
        if not self.model.bits or not mask:
            return
        fits = not (value ^ self.model.bits[0]) & mask
        assert engine.peek_read_probability(handle, value, mask, 0.0) == float(fits)
        selected = failure_of(lambda: engine.postselect(handle, value, mask))
        no_match = "RuntimeError('qc.postselect() no non-zero terms match the desired value.')"
        assert selected == (None if fits else no_match)


@contextlib.contextmanager
def open_pair(engine: ModuleType, *, debug: bool) -> Iterator[Pair]:
    """A filter and its model without a register. The filter is freed at the end."""
    with open_bit_filter(engine) as bits:
        pair = Pair(bits, debug)
        with noting(pair.history):
            yield pair


def close_jump(model: BitModel) -> list[Record]:
    """Ends an open jump, and lets pending extensions lapse."""
    return [tagged(LABEL, target_mask=model.open_label), tagged(MARKER_10000000)]


def read_all_words(model: BitModel) -> list[Record]:
    """Reads whole words, bits past the last qubit included, each into 64 separate flags."""
    return [
        tagged(READ, target_mask=WORD, target_offset=64 * word, read_flag=-250 + 64 * word)
        for word in range(len(model.bits))
    ]


def free_all_bits(model: BitModel) -> list[Record]:
    """Frees every bit with the check, which queues an event for each bit that a gate left at 1."""
    return [
        tagged(FREE, target_mask=1 << bit, target_offset=64 * word, cond_mask=16, read_flag=bit)
        for word in range(len(model.bits))
        for bit in range(64)
    ]


def drive(engine: ModuleType, rng: DrawnRandom) -> Pair:
    """Runs one program: usually a reset, then random calls, then a read or free of every bit."""
    width = random_width(rng)
    source = RecordSource(rng, width)
    with open_pair(engine, debug=rng.random() < 0.9) as pair:
        if rng.random() < 0.98:
            pair.run([tagged(RESET, target_mask=width)])
        for _ in rng.steps(CALLS):
            pair.run(source.records(RECORDS))
            pair.compare_peeks(rng.getrandbits(32), 1 << rng.randrange(32))
        pair.run(close_jump(pair.model))
        pair.run(rng.choice((read_all_words, free_all_bits))(pair.model))
        return pair


class Reached:
    """Counts what the programs of a batch reach. Programs that fail at once would test little."""

    def __init__(self) -> None:
        self.failures: Counter[str] = Counter()
        self.num_events = 0
        self.num_programs = 0

    def count(self, pair: Pair) -> None:
        self.failures.update(re.sub("0x[0-9a-f]+|-?[0-9]+", "#", text) for text in pair.failures)
        self.num_events += pair.num_events
        self.num_programs += 1

    def check(self) -> None:
        assert self.num_programs / 20 < self.failures.total() < self.num_programs
        assert len(self.failures) == len(set(REFUSED.values())) + 8, self.failures
        assert self.num_events > self.num_programs / 10


@pytest.mark.parametrize("batch", range(BATCHES))
def test_random_programs(engine: ModuleType, batch: int) -> None:
    reached = Reached()
    check_programs(lambda rng: reached.count(drive(engine, rng)), PROGRAMS_EACH, batch)
    reached.check()


def drive_wildly(engine: ModuleType, rng: DrawnRandom) -> None:
    with open_pair(engine, debug=True) as pair:
        pair.run([tagged(RESET, target_mask=random_width(rng))])
        for _ in rng.steps(30):
            pair.run([wild_record(rng) for _ in rng.steps(2)])
        pair.run(close_jump(pair.model))
        pair.run(read_all_words(pair.model))


def test_wild_records(engine: ModuleType) -> None:
    check_programs(lambda rng: drive_wildly(engine, rng), 200)
