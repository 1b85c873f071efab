"""`Simulator.run` refuses qubits outside the register before anything runs."""

from __future__ import annotations

import random
from collections.abc import Callable

import _lib_nb_sim
import nimbrel as nb
import pytest

from support.program_check import (
    ALL_FILTERS,
    BIT,
    CLIFFORD,
    DENSE,
    LONG,
    SPARSE,
    filler,
    outside,
    refused,
)

# Each names the qubits 0 and q, or q alone.
OPERATIONS: dict[str, Callable[[int], nb.RecordArray]] = {
    "h": nb.h,
    "y": lambda q: nb.y([0, q]),
    "z": nb.z,
    "s": nb.s,
    "s-inv": nb.s_inv,
    "t": nb.t,
    "t-inv": nb.t_inv,
    "rootx": nb.rootx,
    "rootx-inv": nb.rootx_inv,
    "rooty": nb.rooty,
    "rooty-inv": nb.rooty_inv,
    "rx": lambda q: nb.rx(1.0, q),
    "ry": lambda q: nb.ry(1.0, q),
    "rz": lambda q: nb.rz(1.0, q),
    "phase": lambda q: nb.phase(1.0, q),
    "lelbow": nb.lelbow,
    "relbow": nb.relbow,
    "x-control": lambda q: nb.x(0, controls=q),
    "x-zero": lambda q: nb.x(0, zeros=q),
    "phase-control": lambda q: nb.phase(1.0, (), controls=[0, q]),
    "swap": lambda q: nb.swap(0, q),
    "read": lambda q: nb.read([0, q], 2),
    "write": lambda q: nb.write([0, q], 1),
    "clear": nb.clear,
    "free": nb.free,
    "ppr-x": lambda q: nb.ppr(1.0, [0, q], ()),
    "ppr-z": lambda q: nb.ppr(1.0, 0, q),
    "ppr-control": lambda q: nb.ppr(1.0, 0, (), controls=q),
    "ppm": lambda q: nb.ppm(0, [0, q], 5),
    "pcp": lambda q: nb.pcp(0, 1, q, 0),
}
everything = pytest.mark.parametrize("build", OPERATIONS.values(), ids=OPERATIONS)


@everything
@pytest.mark.parametrize("filter_type", ALL_FILTERS)
def test_the_first_qubit_outside_is_refused(
    filter_type: str, build: Callable[[int], nb.RecordArray]
) -> None:
    with nb.Simulator(filter_type) as sim:
        refused(sim, outside(1, 2, 2), nb.reset(2), build(2))
        sim.run(nb.reset(2))
        refused(sim, outside(1, 63, 2), nb.x(1), build(63))


@everything
def test_the_last_qubit_inside_is_let_pass(build: Callable[[int], nb.RecordArray]) -> None:
    with nb.Simulator(DENSE) as sim:
        sim.run(nb.reset(3), build(2))


@everything
def test_a_long_program_is_searched_to_its_end(build: Callable[[int], nb.RecordArray]) -> None:
    with nb.Simulator(DENSE) as sim:
        sim.run(nb.reset(3), build(2), filler(LONG), build(2))
        refused(sim, outside(LONG, 3, 3), filler(LONG), build(3), filler(50))
        refused(sim, outside(LONG + 1, 3, 3), nb.reset(3), filler(LONG), build(3))
        refused(sim, outside(0, 3, 3), build(3), filler(LONG))


def test_nothing_has_run_when_a_record_is_refused() -> None:
    with nb.Simulator(DENSE) as sim:
        sim.run(nb.reset(2))
        refused(sim, outside(1, 5, 2), nb.x(0), nb.h(5))
        assert sim.state().tolist() == [1, 0, 0, 0]


def test_the_index_counts_the_records_of_all_parts() -> None:
    with nb.Simulator(BIT) as sim:
        refused(sim, outside(4, 9, 9), nb.reset(9), nb.x(0), filler(2), nb.x([1, 9, 12]))


@pytest.mark.parametrize("filter_type", ALL_FILTERS)
def test_a_failed_or_unknown_condition_does_not_excuse_a_qubit(filter_type: str) -> None:
    with nb.Simulator(filter_type) as sim:
        refused(sim, outside(1, 2, 2), nb.reset(2), nb.x(2, flag=77))


@pytest.mark.parametrize("filter_type", ALL_FILTERS)
def test_a_register_of_no_qubits_has_none(filter_type: str) -> None:
    with nb.Simulator(filter_type) as sim:
        refused(sim, outside(1, 0, 0), nb.reset(0), nb.x(0))


@pytest.mark.parametrize("filter_type", [BIT, CLIFFORD])
@pytest.mark.parametrize("size", [64, 65, 100, 128])
@pytest.mark.parametrize("count", [0, LONG])
def test_wide_registers(filter_type: str, size: int, count: int) -> None:
    with nb.Simulator(filter_type) as sim:
        inside = [0, 63, size - 1] if size > 64 else [0, 63]
        sim.run(nb.reset(size), nb.x(inside), nb.read(inside, 2), nb.write(inside, 2))
        sim.run(filler(count), nb.x(size - 1, controls=0), nb.x(0, controls=size - 1))
        for build in (nb.x, nb.clear, lambda q: nb.x(0, controls=q)):
            for qubit in (size, 64 * 3, 2**40):
                refused(sim, outside(count, qubit, size), filler(count), build(qubit))


@pytest.mark.parametrize("count", [0, LONG])
def test_extension_records_are_checked_where_they_stand(count: int) -> None:
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(130))
        refused(sim, outside(count, 130, 130), filler(count), nb.x([0, 130]))
        refused(sim, outside(count + 1, 192, 130), filler(count), nb.x([0, 64, 192]))
        refused(sim, outside(count, 130, 130), filler(count), nb.x(0, controls=[1, 130]))
        controls = nb.record(nb.Opcode.EXTEND, cond_mask=1, cond_offset=192)
        refused(sim, outside(0, 192, 130), controls, controls, nb.x(0), filler(count))


@pytest.mark.parametrize("count", [0, LONG])
def test_words_that_name_no_qubits_are_left_alone(count: int) -> None:
    far = 2**64 - 1
    with nb.Simulator(DENSE) as sim:
        sim.run(nb.reset(2), filler(count))
        sim.run(
            filler(count),
            nb.flag_nand(-1, -5, 9),
            nb.open_event(2**60),
            nb.close_event(2**60),
            nb.jump_fwd(far),
            nb.label(far),
            nb.fetch_request(-5, 3),
            nb.record(nb.Opcode.Z_NOP, target_mask=far, cond_mask=far),
            nb.record(nb.Opcode.MARKER_10008003, target_mask=far),
            nb.record(nb.Opcode.READ, target_mask=1, cond_mask=far, read_flag=-9),
            nb.record(nb.Opcode.WRITE, target_mask=1, cond_mask=far),
            nb.record(nb.Opcode.X, target_mask=1, cond_neg_mask=far),
            nb.record(nb.Opcode.X, target_offset=far, cond_offset=far),
            nb.free(0, check=True),
        )


@pytest.mark.parametrize("count", [0, LONG])
def test_an_extension_of_a_write_carries_values(count: int) -> None:
    value = nb.record(nb.Opcode.EXTEND, cond_mask=2**63, cond_offset=64)
    with nb.Simulator(BIT) as sim:
        sim.run(nb.reset(70), filler(count), value, nb.write(0, 1))
        refused(sim, outside(count, 127, 70), filler(count), value, nb.x(0))


def test_a_sparse_write_has_its_flag_in_the_offset() -> None:
    write = nb.record(nb.Opcode.WRITE, target_mask=1, cond_mask=1, target_offset=500)
    with nb.Simulator(SPARSE) as sim:
        sim.run(nb.reset(2), write)
        assert sim.flags(500, 1) == 0
        sim.run(filler(LONG), write)
        refused(sim, outside(1, 500 // 64 * 64, 2), nb.x(0), nb.x(500 // 64 * 64))


@pytest.mark.parametrize("filter_type", [DENSE, SPARSE])
def test_a_qubit_of_a_further_word_is_not_taken_for_a_low_one(filter_type: str) -> None:
    with nb.Simulator(filter_type) as sim:
        refused(sim, outside(1, 70, 10), nb.reset(10), nb.x(70))


@pytest.mark.parametrize("filter_type", [DENSE, SPARSE])
def test_extensions_of_filters_without_them_are_left_to_the_engine(filter_type: str) -> None:
    with nb.Simulator(filter_type) as sim:
        sim.run(nb.reset(10))
        with pytest.raises(RuntimeError, match=r"^qc\.extend has not been implemented"):
            sim.run(nb.x([3, 70]))


def test_a_clifford_offset_counts_whole() -> None:
    with nb.Simulator(CLIFFORD) as sim:
        inside = nb.record(nb.Opcode.X, target_mask=1, target_offset=69)
        sim.run(nb.reset(70), inside, filler(LONG), inside)
        beyond = nb.record(nb.Opcode.X, target_mask=2, target_offset=69)
        refused(sim, outside(0, 70, 70), beyond)
        refused(sim, outside(LONG, 70, 70), filler(LONG), beyond)


def test_a_clifford_register_has_the_low_half_of_the_size() -> None:
    with nb.Simulator(CLIFFORD) as sim:
        refused(sim, outside(1, 3, 3), nb.reset(2**32 + 3), nb.x(3))


@pytest.mark.parametrize("filter_type", ALL_FILTERS)
def test_it_can_be_switched_off(filter_type: str) -> None:
    with nb.Simulator(filter_type, check_qubits=False) as sim:
        if filter_type == CLIFFORD:
            with pytest.raises(RuntimeError, match="qubit 5"):
                sim.run(nb.reset(2), nb.x(5))
        else:
            sim.run(nb.reset(2), nb.x(5), filler(LONG), nb.x(5))


def brute_force(program: nb.RecordArray, limit: int) -> int | None:
    """The first record that names a qubit outside, when only masks of one word matter."""
    for index, row in enumerate(program.tolist()):
        if row[0] == nb.Opcode.RESET:
            limit = row[1]
        elif (row[1] | row[2]) >> limit:
            return index
    return None


def test_random_programs_beside_a_plain_walk(rng: random.Random) -> None:
    found = 0
    for _ in range(300):
        size, count = rng.randrange(2, 9), rng.choice([1, 5, 12, 13, 14, 200])
        odds = rng.choice([0.0, 0.005, 0.2])
        rows = []
        for _ in range(count):
            if rng.random() < 0.1:
                rows.append(nb.reset(rng.randrange(size, 9)))
            else:
                reach = 9 if rng.random() < odds else size
                rows.append(nb.x(rng.randrange(reach - 1), controls=reach - 1))
        program = nb.program(*rows)
        expected = brute_force(program, size)
        with nb.Simulator(BIT) as sim:
            sim.run(nb.reset(size))
            if expected is None:
                sim.run(program)
            else:
                found += 1
                with pytest.raises(ValueError, match=rf"^record {expected}: qubit "):
                    sim.run(program)
    assert 50 < found < 250


def test_programs_of_a_service_are_not_checked() -> None:
    with (
        nb.Simulator("StreamConnect") as sim,
        pytest.raises(RuntimeError),  # there is no connection
    ):
        sim.run(nb.reset(2), nb.x(5))


def test_programs_run_by_the_handle_end_the_check() -> None:
    with nb.Simulator(DENSE) as sim:
        sim.run(nb.reset(2))
        larger = nb.reset(6)
        _lib_nb_sim.put_instructions(sim.handle, larger, 1)
        sim.run(nb.x(5))
        assert sim.value_of(32) == 1
