"""The check of a program before `Simulator.run` passes it to the engine.

`record_rules` has the rules for one record. In a long program, `suspect_search` finds the records
that may break a rule, and only these are checked by the rules.
"""

from collections.abc import Callable
from typing import Final, TypeAlias

import numpy as np

from nimbrel.passed_programs import PassedPrograms
from nimbrel.record_rules import RecordRules
from nimbrel.records import RecordArray
from nimbrel.register_trace import Register, RegisterTrace, Words
from nimbrel.suspect_search import WORDS_PER_RECORD, as_words, find_suspects, flow_records

__all__ = ["ProgramCheck"]

Entry: TypeAlias = list[Register]
"""A list of one register. Its identity tells who has stored it."""

_SHORT: Final = 12
"""Longest program for which the rules without a search are faster."""
_CHUNK: Final = 4096
"""Records of one search. Their 360 kB stay in the cache while the columns are read."""


class ProgramCheck:
    """Checks all programs of one filter.

    It tracks the register from program to program, so it must see every program of the filter.

    Several threads may run programs of one filter at the same time. The interpreter may switch
    threads between any two calls here, but not between a comparison and the assignment behind it.
    """

    def __init__(self, filter_type: str, *, qubits: bool, inexact_controls: bool) -> None:
        """Choose the checks.

        Args:
            filter_type: The engine's name of the filter.
            qubits: Whether qubits outside the register are refused.
            inexact_controls: Whether controls that are not exact on a Clifford filter are allowed.
        """
        is_clifford = filter_type == "StreamCliffordQPU"
        controls = is_clifford and not inexact_controls
        self._rules = RecordRules(filter_type, qubits=qubits, controls=controls)
        # A Clifford filter uses the low 32 bits of a reset's size.
        self._size_mask = 2**32 - 1 if is_clifford else 2**64 - 1
        self._passed = PassedPrograms()
        self._current: Entry = [Register()]

    @property
    def may_be_skipping(self) -> bool:
        """Whether a jump of the programs so far may be open."""
        return bool(self._current[0].open_labels)

    def stop_following(self) -> None:
        """Refuse no qubits from now on, because programs may run that are not seen here."""
        self._rules.qubits = False

    def resize(self, num_qubits: int) -> None:
        """Note a register that was made without a record.

        Args:
            num_qubits: Its size.
        """
        self._change(lambda register: register._replace(limit=num_qubits))

    def begin(self, records: RecordArray) -> tuple[Entry, Register]:
        """Check a program that is about to run.

        If an exception prevents `ran` and `failed`, nothing is wrongly refused afterwards: from
        here to `ran`, the register before the program and the one after it are both possible.

        Args:
            records: The program, contiguous, shape (n,).

        Returns:
            The arguments of `ran`.

        Raises:
            ValueError: If a record is refused.
        """
        while True:
            before = self._current
            if not (self._rules.qubits or self._rules.controls):
                return before, before[0]
            after = self._register_after(records, before[0])
            if after == before[0]:
                return before, after
            marked = [before[0].joined(after)]
            if self._current is before:
                self._current = marked
                return marked, after

    def ran(self, entry: Entry, after: Register) -> None:
        """Note that a program has run to its end.

        Args:
            entry: As `begin` returned it.
            after: As `begin` returned it.
        """
        if entry[0] == after and self._current is entry:
            return
        new = [after]
        if self._current is entry:
            self._current = new
        else:
            # A program of another thread ran before or after this one.
            self._change(after.joined)

    def failed(self, records: RecordArray) -> None:
        """Note that a program has failed after an unknown number of records.

        Args:
            records: The program, contiguous, shape (n,).
        """
        words = as_words(records)
        rows = words[flow_records(words)].tolist()

        def up_to_anywhere(register: Register) -> Register:
            trace = RegisterTrace(self._size_mask, register)
            trace.follow_up_to_anywhere(rows)
            return trace.register

        self._change(up_to_anywhere)

    def _change(self, change: Callable[[Register], Register]) -> None:
        while True:
            before = self._current
            new = [change(before[0])]
            if self._current is before:
                self._current = new
                return

    def _register_after(self, records: RecordArray, register: Register) -> Register:
        """Check a program, unless the same one has passed before.

        Args:
            records: The program.
            register: The register before it.

        Returns:
            The register after it.
        """
        if not PassedPrograms.accepts(len(records)):
            return self._examine(as_words(records), register)
        content = records.tobytes()
        after = self._passed.find(content, register)
        if after is None:
            words = np.frombuffer(content, dtype=np.uint64).reshape(-1, WORDS_PER_RECORD)
            after = self._examine(words, register)
            self._passed.add(content, register, after)
        return after

    def _examine(self, words: Words, register: Register) -> Register:
        trace = RegisterTrace(self._size_mask, register)
        # The first record is checked without a search: it is mostly a reset, which slows a search.
        is_short = len(words) <= _SHORT
        short = len(words) if is_short else 1
        rows = words.tolist() if is_short else _LazyRows(words)
        for index in range(short):
            trace.follow(rows[index])
            self._rules.check(rows, index, trace.limit, register.open_labels)
        for first in range(short, len(words), _CHUNK):
            for number, limit in find_suspects(words[first : first + _CHUNK], trace, self._rules):
                self._rules.check(rows, first + number, limit, register.open_labels)
        return trace.register


class _LazyRows:
    """The records of a long program. Each access converts one record to Python numbers."""

    def __init__(self, words: Words) -> None:
        self._words = words

    def __len__(self) -> int:
        return len(self._words)

    def __getitem__(self, index: int, /) -> list[int]:
        row: list[int] = self._words[index].tolist()
        return row
