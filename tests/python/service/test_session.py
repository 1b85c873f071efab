"""One client's session of the service: refusals, and when other clients get a turn."""

from __future__ import annotations

from collections.abc import Iterator
from typing import Any

import nimbrel as nb
import numpy as np
import pytest
from nimbrel import Opcode, Simulator
from nimbrel.service import session as session_module
from nimbrel.service.session import Limits, RefusalError, Session

EXTEND = nb.record(Opcode.EXTEND, target_mask=1)
LABEL = nb.record(Opcode.LABEL, target_mask=9)
MARKER = nb.record(Opcode.MARKER_10000002)
MOST_EXTENSIONS = 4096
MOST_EVENTS = 65536


def session_on(sim: Simulator, records: int = 10**6, quick_qubits: int = 2**64 - 1) -> Session:
    limits = Limits(clients=1, qubits=100, records=records, idle_seconds=1)
    return Session(sim, limits, quick_qubits)


@pytest.fixture
def session() -> Iterator[Session]:
    with Simulator("StreamBitQPU") as sim:
        sim.run(nb.reset(64))
        yield session_on(sim)


def feed(session: Session, *parts: np.ndarray) -> int:
    """Feeds everything and counts the turns of other clients."""
    return len(list(session.feed(nb.program(*parts).tobytes())))


def times(count: int, one: np.ndarray) -> np.ndarray:
    return np.repeat(one, count)


def assert_refused(session: Session, reason: str, *parts: np.ndarray) -> None:
    with pytest.raises(RefusalError, match=f"^{reason}$"):
        feed(session, *parts)


def test_extensions_of_one_operation_have_a_limit(session: Session) -> None:
    feed(session, times(MOST_EXTENSIONS, EXTEND), nb.x(0), times(MOST_EXTENSIONS, EXTEND))
    assert_refused(session, "more than 4096 extensions of one operation", EXTEND)


@pytest.mark.parametrize("carried", [1, 64, MOST_EXTENSIONS])
def test_extensions_count_over_feeds(session: Session, carried: int) -> None:
    feed(session, times(carried, EXTEND))
    feed(session, times(MOST_EXTENSIONS - carried, EXTEND))
    assert_refused(session, "more than 4096 extensions .*", EXTEND)


@pytest.mark.parametrize(
    "between",
    [
        pytest.param([LABEL], id="a label"),
        pytest.param([nb.record(Opcode.JUMP_FAMILY)], id="a jump that is none"),
        pytest.param([nb.record(0x16)], id="a number that is taken for a jump"),
        pytest.param([nb.jump_fwd(9), nb.x(0), LABEL], id="a skipped operation"),
        pytest.param([nb.jump_fwd(9), nb.jump_fwd(8), MARKER, LABEL], id="a jump in a jump"),
    ],
)
def test_extensions_that_still_wait_count(session: Session, between: list[np.ndarray]) -> None:
    """A record that the engine does not count as an operation leaves them pending."""
    half = MOST_EXTENSIONS // 2
    feed(session, times(half, EXTEND), *between, times(half, EXTEND))
    assert_refused(session, "more than 4096 extensions .*", EXTEND)


@pytest.mark.parametrize("operation", [nb.x(1), MARKER, nb.reset(64), nb.fetch_request(2, 1)])
def test_an_operation_ends_its_extensions(session: Session, operation: np.ndarray) -> None:
    for _ in range(3):
        feed(session, times(MOST_EXTENSIONS, EXTEND), operation)


@pytest.mark.parametrize("opcode", [Opcode.OPEN_EVENT, Opcode.OPEN_EVENT_2])
def test_opened_events_have_a_limit(session: Session, opcode: Opcode) -> None:
    closing = nb.record(Opcode.CLOSE_EVENT)
    feed(session, times(MOST_EVENTS - 1, nb.record(Opcode.OPEN_EVENT)), closing)
    feed(session, nb.record(opcode), closing)
    assert_refused(session, "more than 65536 opened events", nb.record(opcode))


def test_many_records_stop_at_the_last_one_within_their_limit() -> None:
    with Simulator("StreamBitQPU") as sim:
        session = session_on(sim, records=150)
        feed(session, nb.reset(1), times(99, nb.x(0)))
        assert_refused(session, "more than 150 records", times(51, nb.x(0)))
        assert session.num_records == 150
        assert sim.bits() == "1"


def test_others_have_their_turn_after_a_call_of_the_engine(
    session: Session, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(session_module, "TURN_SECONDS", 0.0)
    assert feed(session, times(200, nb.x(0))) == 4
    assert feed(session, times(70, nb.x(0)), nb.fetch_request(2, 1), nb.x(0)) == 4


def test_a_turn_that_is_not_over_is_kept(session: Session, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(session_module, "TURN_SECONDS", 1e9)
    assert feed(session, times(200, nb.x(0)), nb.fetch_request(2, 1)) == 0


def test_a_record_that_may_take_long_has_a_call_of_its_own(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    """Also after a reset to a narrow register, because a jump may have skipped the reset."""
    monkeypatch.setattr(session_module, "TURN_SECONDS", 0.0)
    with Simulator("StreamBitQPU") as sim:
        session = session_on(sim, quick_qubits=10)
        assert feed(session, nb.reset(10), times(128, nb.x(0))) == 3
        assert feed(session, nb.reset(11), times(128, nb.x(0))) == 129
        assert feed(session, nb.reset(1), times(128, nb.x(0))) == 129


def test_records_in_turns_do_what_they_do_in_one_call(
    rng: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(session_module, "TURN_SECONDS", 0.0)
    parts = [nb.reset(100)]
    for step in range(300):
        targets = rng.sample(range(100), 3)
        parts += [nb.x(targets, flag=rng.choice([0, 2, -3])), nb.read(targets, 2 + step % 50)]
        if step % 20 == 7:
            parts += [nb.jump_fwd(step, flag=2), nb.x(range(100)), nb.label(step)]
    with Simulator("StreamBitQPU") as local, Simulator("StreamBitQPU") as sim:
        local.run(*parts)
        feed(session_on(sim, quick_qubits=rng.choice([0, 100])), *parts)
        assert sim.bits() == local.bits()
        assert sim.flags(-60, 120) == local.flags(-60, 120)
