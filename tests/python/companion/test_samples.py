"""The forms in which `Samples` gives its outcomes."""

from __future__ import annotations

import nimbrel as nb
import numpy as np
import pytest


def alternating(num_qubits: int, shots: int = 3) -> nb.Samples:
    """Outcomes in which the odd flags are 1."""
    ones = nb.x(list(range(1, num_qubits, 2))) if num_qubits > 1 else nb.program()
    records = nb.program(nb.reset(num_qubits), ones, nb.read(range(num_qubits), 2))
    return nb.sample(records, shots)


@pytest.mark.parametrize("num_qubits", [1, 7, 8, 9, 63, 64, 65, 130])
def test_column_k_is_the_flag_k_in_every_form(num_qubits: int) -> None:
    samples = alternating(num_qubits)
    bits = [k % 2 for k in range(num_qubits)]
    assert samples.read_flags == tuple(range(2, num_qubits + 2))
    assert samples.bits().tolist() == [bits] * 3
    assert samples.packed.shape == (3, -(-num_qubits // 8))
    assert samples.packed.dtype == np.uint8
    assert samples.counts() == {"".join(map(str, reversed(bits))): 3}


@pytest.mark.parametrize("num_qubits", [1, 8, 63, 64])
def test_column_0_is_least_significant_in_a_value(num_qubits: int) -> None:
    values = alternating(num_qubits).values()
    assert values.dtype == np.uint64
    assert values.tolist() == [sum(1 << k for k in range(1, num_qubits, 2))] * 3


def test_more_than_64_columns_have_no_value() -> None:
    with pytest.raises(ValueError, match="64 columns, and there are 65"):
        alternating(65).values()


@pytest.mark.parametrize("num_qubits", [4, 70])
def test_counts_are_in_ascending_order(num_qubits: int) -> None:
    qubits = [0, 1, num_qubits - 1]
    records = nb.program(nb.reset(num_qubits), nb.h(qubits), nb.read(range(num_qubits), 2))
    counts = nb.sample(records, 500).counts()
    assert len(counts) == 8
    assert list(counts) == sorted(counts)
    assert sum(counts.values()) == 500


def test_without_flags_there_is_one_empty_outcome() -> None:
    samples = nb.sample(nb.program(nb.reset(1), nb.h(0)), 4)
    assert samples.packed.shape == (4, 0)
    assert samples.counts() == {"": 4}
    assert samples.values().tolist() == [0] * 4


def test_the_filter_and_the_reason_are_told() -> None:
    samples = alternating(2)
    assert (samples.filter_name, samples.reason) == ("StreamBitQPU", "every record is classical")
    assert len(samples) == 3
    assert repr(samples) == "<Samples: 3 shots of 2 flags, StreamBitQPU>"
