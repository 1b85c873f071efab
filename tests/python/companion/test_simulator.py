"""The simulator on a real filter: results, the types of errors, and closing."""

from __future__ import annotations

from collections.abc import Callable

import _lib_nb_sim
import nimbrel as nb
import pytest
from hypothesis import given
from hypothesis import strategies as st
from nimbrel import BitSimulator, Simulator
from nimbrel._engine import call

NO_REGISTER = "qc.reset() has not been called or did not succeed."
NO_FILTER = "Error: native filter not found."

CALLS: dict[str, Callable[[BitSimulator], object]] = {
    "handle": lambda sim: sim.handle,
    "run": lambda sim: sim.run(nb.reset(1)),
    "flags": lambda sim: sim.flags(2, 1),
    "no flags": lambda sim: sim.flags(2, 0),
    "bits": lambda sim: sim.bits(),
    "peek_probability": lambda sim: sim.peek_probability(0, 1),
    "postselect": lambda sim: sim.postselect(0, 1),
    "next_event": lambda sim: sim.next_event(),
    "events": lambda sim: sim.events(),
    "enable_qubit_debugging": lambda sim: sim.enable_qubit_debugging(),
    "finish": lambda sim: sim.finish(),
}


def recorder(calls: list[tuple[object, ...]]) -> Callable[..., None]:
    """A stand-in for an engine function that notes its arguments."""

    def note(*args: object) -> None:
        calls.append(args)

    return note


def test_a_program_runs_on_a_wide_register() -> None:
    with Simulator() as sim:
        sim.run(nb.reset(130), nb.x([0, 64]), nb.swap(64, 129), nb.x(70, controls=[0, 129]))
        ones = {0, 70, 129}
        assert sim.bits() == "".join("1" if qubit in ones else "0" for qubit in range(130))


def test_a_write_and_a_read_meet_in_the_flags() -> None:
    value = 0x1234_5678_9ABC_DEF0_1234_5678_9ABC_DEF0_1234_5678_9ABC_DEF0
    with Simulator() as sim:
        sim.run(nb.reset(200), nb.write(range(5, 197), value), nb.read(range(5, 197), 40))
        assert sim.flags(40, 192) == value


@pytest.mark.parametrize("count", [0, 1, 31, 32, 33, 64, 65, 100])
def test_any_number_of_flags_can_be_fetched(count: int) -> None:
    with Simulator() as sim:
        sim.run(nb.reset(100), nb.write(range(100), 2**100 - 1), nb.read(range(100), 2))
        assert sim.flags(2, count) == 2**count - 1


@given(value=st.integers(0, 2**150 - 1), first=st.integers(0, 149), count=st.integers(0, 200))
def test_flags_are_the_bits_of_an_integer(value: int, first: int, count: int) -> None:
    with Simulator() as sim:
        sim.run(nb.reset(150), nb.write(range(150), value, 2))
        assert sim.flags(2 + first, count) == (value >> first) % 2**count


def test_negative_flags_read_inverted() -> None:
    with Simulator() as sim:
        sim.run(nb.reset(3), nb.write(range(3), 0b101, 2))
        # Flags -4, -3, -2 hold the inverse of 1, 0, 1; the constants -1, 0, 1 read 0, 0, 1.
        assert sim.flags(-4, 6) == 0b100010


@pytest.mark.parametrize(
    ("first", "count"), [(2, -1), (-(2**31) - 1, 1), (2**31 - 1, 2), (2**31, 1)]
)
def test_flags_out_of_reach_are_refused(first: int, count: int) -> None:
    with Simulator() as sim, pytest.raises(ValueError, match="cannot be fetched"):
        sim.flags(first, count)


def test_the_last_flag_number_can_be_fetched() -> None:
    with Simulator() as sim:
        assert sim.flags(2**31 - 1, 1) == 0


def test_an_empty_program_changes_nothing() -> None:
    with Simulator() as sim:
        sim.run(nb.reset(2), nb.x(1))
        sim.run()
        assert sim.bits() == "01"


@pytest.mark.parametrize("name", ["bits", "peek_probability", "postselect"])
def test_an_engine_error_arrives_as_itself(name: str) -> None:
    with Simulator() as sim, pytest.raises(RuntimeError) as caught:
        CALLS[name](sim)
    assert type(caught.value) is RuntimeError
    assert caught.value.args == (NO_REGISTER,)
    assert caught.value.__cause__ is None
    assert caught.value.__suppress_context__


def test_records_before_a_failing_one_have_taken_effect() -> None:
    with Simulator() as sim:
        with pytest.raises(RuntimeError, match=r"^qc\.y has not been implemented"):
            sim.run(nb.reset(3), nb.x(1), nb.y(0), nb.x(2))
        assert sim.bits() == "010"


def test_an_unknown_filter_is_an_error() -> None:
    with pytest.raises(RuntimeError, match=r"^Error: Unknown Filter type: StreamNothing$"):
        Simulator("StreamNothing")


def test_a_system_error_of_another_making_passes_through() -> None:
    def broken() -> None:
        raise SystemError("of its own")

    with pytest.raises(SystemError, match="of its own"):
        call(broken)


def test_a_part_that_is_no_record_array_never_reaches_the_engine() -> None:
    with Simulator() as sim:
        sim.run(nb.reset(1))
        with pytest.raises(ValueError, match="dtype QPU_OP"):
            sim.run(nb.x(0), nb.x(0)["opcode"])
        assert sim.bits() == "0"


def test_each_simulator_has_a_filter_of_its_own() -> None:
    with Simulator() as one, Simulator() as other:
        assert one.handle != other.handle
        one.run(nb.reset(1), nb.x(0))
        other.run(nb.reset(2))
        assert (one.bits(), other.bits()) == ("1", "00")


def test_parameters_reach_the_engine_with_the_defaults_of_the_others(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    calls: list[tuple[object, ...]] = []
    monkeypatch.setattr(_lib_nb_sim, "setup_sim_params", recorder(calls))
    with Simulator(max_num_threads=3, verbose=1) as sim:
        assert calls == [(sim.handle, 0, 0, 3, 0, 0, 1, 1)]
    with Simulator(num_block_qubits=5, async_=False) as sim:
        assert calls[1:] == [(sim.handle, 5, 0, 0, 0, 0, 0, 0)]


def test_the_engine_takes_the_parameters() -> None:
    with Simulator(max_ram_size_gb=2**32 - 1, randomized=1, use_opencl=1, async_=0) as sim:
        sim.run(nb.reset(1))
        assert sim.bits() == "0"


def test_without_parameters_the_engine_keeps_its_own(monkeypatch: pytest.MonkeyPatch) -> None:
    calls: list[tuple[object, ...]] = []
    monkeypatch.setattr(_lib_nb_sim, "setup_sim_params", recorder(calls))
    Simulator().close()
    assert calls == []


def test_bad_parameters_are_refused_before_a_filter_is_made(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    calls: list[tuple[object, ...]] = []
    monkeypatch.setattr(_lib_nb_sim, "new_native_filter", recorder(calls))
    with pytest.raises(TypeError, match="threads"):
        Simulator(threads=1)
    with pytest.raises(ValueError, match="unsigned 32-bit number, not 4294967296"):
        Simulator(max_num_threads=2**32)
    assert calls == []


def test_leaving_the_block_frees_the_filter() -> None:
    with Simulator() as sim:
        handle = sim.handle
        call(_lib_nb_sim.finish, handle)
    with pytest.raises(RuntimeError, match=f"^{NO_FILTER}$"):
        call(_lib_nb_sim.finish, handle)


def test_an_error_in_the_block_frees_the_filter_and_travels_on() -> None:
    sim = Simulator()
    handle = sim.handle
    with pytest.raises(KeyError), sim:
        raise KeyError
    with pytest.raises(RuntimeError, match=f"^{NO_FILTER}$"):
        call(_lib_nb_sim.finish, handle)


def test_closing_twice_is_closing_once(monkeypatch: pytest.MonkeyPatch) -> None:
    sim = Simulator()
    handle = sim.handle
    calls: list[tuple[object, ...]] = []
    with monkeypatch.context() as patch:
        patch.setattr(_lib_nb_sim, "delete_native_filter", recorder(calls))
        sim.close()
        sim.close()
    _lib_nb_sim.delete_native_filter(handle)
    assert calls == [(handle,)]


@pytest.mark.parametrize("name", CALLS)
def test_a_closed_simulator_refuses_every_call(name: str) -> None:
    sim = Simulator()
    sim.close()
    with pytest.raises(ValueError, match=r"^the simulator is closed$"):
        CALLS[name](sim)


def test_a_checked_free_queues_an_event_per_word() -> None:
    with Simulator() as sim:
        sim.enable_qubit_debugging()
        sim.run(
            nb.reset(100),
            nb.x([3, 70]),
            nb.open_event(11),
            nb.open_event(12),
            nb.free([3, 4, 70], check=True, event_code=9),
        )
        first, second = sim.events()
        assert first[:3] == ("free_nonzero_qubits", "Error: assert zero check failed.", 9)
        assert second[:3] == first[:3]
        assert first.ids.tolist() == [11, 12]
        assert sim.bits() == "0" * 100
        assert sim.next_event() is None


def test_events_come_oldest_first() -> None:
    with Simulator() as sim:
        sim.enable_qubit_debugging()
        for code in (5, 6, 7):
            sim.run(nb.reset(1), nb.x(0), nb.free(0, check=True, event_code=code))
        oldest = sim.next_event()
        assert oldest is not None
        assert oldest.code == 5
        assert [event.code for event in sim.events()] == [6, 7]
        assert sim.events() == []


@pytest.mark.parametrize(
    ("debugging", "check"), [((), True), ((True, False), True), ((True,), False)]
)
def test_no_check_without_debugging_or_without_asking(
    debugging: tuple[bool, ...], check: bool
) -> None:
    with Simulator() as sim:
        for on in debugging:
            sim.enable_qubit_debugging(on)
        sim.run(nb.reset(1), nb.x(0), nb.free(0, check=check))
        assert sim.events() == []


def test_a_probability_is_certain_on_bits() -> None:
    with Simulator() as sim:
        sim.run(nb.reset(40), nb.x([1, 31, 35]))
        assert sim.peek_probability(1 << 31 | 2, 1 << 31 | 3) == 1.0
        assert sim.peek_probability(3, 3, limit=0.5) == 0.0


def test_a_postselection_keeps_or_fails() -> None:
    with Simulator() as sim:
        sim.run(nb.reset(2), nb.x(1))
        sim.postselect(2, 3)
        assert sim.bits() == "01"
        with pytest.raises(RuntimeError, match=r"^qc\.postselect\(\) no non-zero terms match"):
            sim.postselect(1, 3)


@pytest.mark.parametrize("bad", [-1, 2**32])
def test_masks_that_the_engine_would_cut_are_refused(bad: int) -> None:
    with Simulator() as sim:
        sim.run(nb.reset(1))
        with pytest.raises(ValueError, match=rf"^mask must be .* not {bad}$"):
            sim.peek_probability(0, bad)
        with pytest.raises(ValueError, match=rf"^value must be .* not {bad}$"):
            sim.peek_probability(bad, 1)
        with pytest.raises(ValueError, match=rf"^mask must be .* not {bad}$"):
            sim.postselect(0, bad)
        with pytest.raises(ValueError, match=rf"^value must be .* not {bad}$"):
            sim.postselect(bad, 1)


def test_a_finish_leaves_the_state() -> None:
    with Simulator() as sim:
        sim.run(nb.reset(2), nb.x(0))
        sim.finish()
        assert sim.bits() == "10"


def test_a_seed_reaches_the_engine_as_its_second_argument(monkeypatch: pytest.MonkeyPatch) -> None:
    calls: list[tuple[object, ...]] = []
    with monkeypatch.context() as patch:
        patch.setattr(_lib_nb_sim, "random_seed", recorder(calls))
        nb.seed(2**32 - 1)
    nb.seed(1)
    assert calls == [(0, 2**32 - 1)]


@pytest.mark.parametrize("value", [-1, 2**32])
def test_a_seed_above_32_bits_is_refused(value: int) -> None:
    with pytest.raises(ValueError, match=rf"^seed must be .* not {value}$"):
        nb.seed(value)
