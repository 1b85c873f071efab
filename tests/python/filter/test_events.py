"""Events: what a failed check queues, the order of the queue, and the open ids."""

from types import ModuleType

import nimbrel as nb
import numpy as np
import pytest

from support.driver import BitFilter, open_bit_filter, rec

OPEN, OPEN_2, CLOSE, CLOSE_2 = 0x10000112, 0x10000212, 0x10004112, 0x10004212
TEXT = "Error: assert zero check failed."


@pytest.fixture
def debugged(bits: BitFilter) -> BitFilter:
    """A filter of two qubits with debugging on."""
    bits.run(nb.reset(2))
    bits.debug()
    return bits


def event(code: int = 0) -> nb.RecordArray:
    """Records that queue one event."""
    return nb.program(nb.x(0), nb.free(0, check=True, event_code=code))


def open_ids(bits: BitFilter) -> list[int]:
    """The open ids, read from a new event."""
    bits.run(event())
    return bits.events()[-1][3]


def test_an_event_is_a_tuple_with_an_array(engine: ModuleType, debugged: BitFilter) -> None:
    debugged.run(nb.open_event(3), nb.open_event(4), event(77))
    taken = engine.get_next_event(debugged.handle)
    assert type(taken) is tuple
    name, message, code, ids = taken
    assert (name, message, code) == ("free_nonzero_qubits", TEXT, 77)
    assert type(ids) is np.ndarray
    assert ids.dtype == np.uint64
    assert ids.shape == (2,)
    assert ids.tolist() == [3, 4]
    ids[0] = 9  # the array is a copy
    assert open_ids(debugged) == [3, 4]


def test_no_open_events_give_an_empty_array(engine: ModuleType, debugged: BitFilter) -> None:
    debugged.run(event())
    ids = engine.get_next_event(debugged.handle)[3]
    assert ids.shape == (0,)
    assert ids.dtype == np.uint64


def test_an_empty_queue_gives_none(engine: ModuleType, debugged: BitFilter) -> None:
    assert engine.get_next_event(debugged.handle) is None
    debugged.run(event())
    assert engine.get_next_event(debugged.handle) is not None
    assert engine.get_next_event(debugged.handle) is None


def test_events_come_oldest_first(engine: ModuleType, debugged: BitFilter) -> None:
    debugged.run(event(1), event(2), event(3))
    assert engine.get_next_event(debugged.handle)[2] == 1
    debugged.run(event(4))
    assert [code for _, _, code, _ in debugged.events()] == [2, 3, 4]


def test_an_event_keeps_the_ids_of_its_moment(debugged: BitFilter) -> None:
    debugged.run(
        event(0),
        nb.open_event(5),
        event(1),
        nb.open_event(6),
        event(2),
        nb.close_event(5),
        event(3),
    )
    assert [(code, ids) for _, _, code, ids in debugged.events()] == [
        (0, []),
        (1, [5]),
        (2, [5, 6]),
        (3, [6]),
    ]


def test_events_belong_to_their_filter(engine: ModuleType, debugged: BitFilter) -> None:
    with open_bit_filter(engine) as other:
        other.run(nb.reset(2), nb.open_event(1))
        other.debug()
        debugged.run(event(5))
        assert other.events() == []
        other.run(event(6))
        assert other.events() == [("free_nonzero_qubits", TEXT, 6, [1])]
    assert debugged.events() == [("free_nonzero_qubits", TEXT, 5, [])]


def test_queue_open_ids_and_debugging_survive_a_reset(debugged: BitFilter) -> None:
    debugged.run(nb.open_event(5), event(1), nb.reset(0), nb.reset(3), event(2))
    assert [(code, ids) for _, _, code, ids in debugged.events()] == [(1, [5]), (2, [5])]


def test_both_kinds_open_and_close_the_same_stack(debugged: BitFilter) -> None:
    debugged.run(rec(OPEN, angle=1.0), rec(OPEN_2, angle=2.0), rec(OPEN, angle=3.0))
    assert open_ids(debugged) == [1, 2, 3]
    debugged.run(rec(CLOSE, angle=2.0), rec(CLOSE_2, angle=3.0))
    assert open_ids(debugged) == [1]


@pytest.mark.parametrize(
    ("closed", "left"),
    [
        ([2], [1, 2, 3]),  # if an id is twice on the stack, the later one is removed
        ([2, 2], [1, 3]),
        ([2, 2, 2], [1, 3]),
        ([3], [1, 2, 2]),
        ([1], [2, 3, 2]),
        ([9], [1, 2, 3, 2]),
        ([3, 1, 2], [2]),
        ([1, 2, 3, 2], []),
        ([1, 2, 3, 2, 1], []),
    ],
)
def test_closing_removes_the_latest_of_the_id(
    debugged: BitFilter, closed: list[int], left: list[int]
) -> None:
    debugged.run(*(nb.open_event(event_id) for event_id in (1, 2, 3, 2)))
    debugged.run(*(nb.close_event(event_id) for event_id in closed))
    assert open_ids(debugged) == left


def test_closing_with_nothing_open_changes_nothing(debugged: BitFilter) -> None:
    debugged.run(nb.close_event(0), nb.close_event(1))
    assert open_ids(debugged) == []


@pytest.mark.parametrize(
    ("angle", "event_id"),
    [
        (0.0, 0),
        (0.99, 0),
        (2.999, 2),
        (-0.5, 0),
        (2.0**53 + 2, 2**53 + 2),
        (2.0**62, 2**62),
        (2.0**63 - 1024, 2**63 - 1024),
        (2.0**63, 2**63),
        (2.0**63 + 2048, 2**63 + 2048),
        (2.0**64 - 2048, 2**64 - 2048),
        (-1.0, 2**64 - 1),
        (-2.5, 2**64 - 2),
    ],
)
def test_the_id_is_the_truncated_angle(debugged: BitFilter, angle: float, event_id: int) -> None:
    debugged.run(rec(OPEN, angle=angle))
    assert open_ids(debugged) == [event_id]
    debugged.run(rec(CLOSE, angle=angle))
    assert open_ids(debugged) == []


def test_event_markers_obey_no_condition(debugged: BitFilter) -> None:
    debugged.run(rec(OPEN, angle=1.0, cond_flag=-1), rec(OPEN, angle=2.0, cond_mask=1))
    assert open_ids(debugged) == [1, 2]
    debugged.run(rec(CLOSE, angle=1.0, cond_flag=-1))
    assert open_ids(debugged) == [2]


def test_many_events(debugged: BitFilter) -> None:
    debugged.run(*(event(code) for code in range(2000)))
    assert [code for _, _, code, _ in debugged.events()] == list(range(2000))
