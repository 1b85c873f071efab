"""Compares sampled outcomes with an exact distribution."""

from __future__ import annotations

import math
from collections.abc import Sequence

import nimbrel as nb

from models.outcomes import distribution
from models.wire import Record

SIGMAS = 5


def as_model(records: nb.RecordArray) -> list[Record]:
    """The records for a model."""
    return [Record(*words) for words in records.tolist()]


def expected_counts(records: nb.RecordArray, flags: Sequence[int]) -> dict[str, float]:
    """The probability of each bit string; the first flag is rightmost."""
    exact = distribution(as_model(records), flags)
    return {"".join(map(str, reversed(values))): p for values, p in exact.items()}


def assert_distributed(samples: nb.Samples, probabilities: dict[str, float]) -> None:
    """Every outcome came as often as its probability tells, within five standard deviations."""
    __tracebackhide__ = True
    shots, counts = len(samples), samples.counts()
    assert sum(counts.values()) == shots
    assert set(counts) <= set(probabilities), (counts, probabilities)
    for outcome, probability in probabilities.items():
        spread = SIGMAS * math.sqrt(shots * probability * max(1 - probability, 0)) + 1e-6 * shots
        got = counts.get(outcome, 0)
        assert abs(got - shots * probability) <= spread, (outcome, got, shots * probability)
