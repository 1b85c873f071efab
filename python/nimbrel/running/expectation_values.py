"""`expectation`: expectation values of Pauli sums in the state that a program makes."""

from collections.abc import Mapping, Sequence
from contextlib import ExitStack
from typing import Any, Final

import numpy as np

from nimbrel._engine import word32
from nimbrel.opcodes import Opcode
from nimbrel.records import Program, RecordArray
from nimbrel.running.bounded_calls import checked, first_call, put_in_calls
from nimbrel.running.deferral import NotDeferred, defer
from nimbrel.running.distributed_products import distributed_products
from nimbrel.running.executor_source import AnyExecutor, refuse_open_simulator
from nimbrel.running.filter_choice import check_local, choose_filter, with_reset
from nimbrel.running.pauli_sums import Observable, PauliProduct, PauliSum, pauli_sums
from nimbrel.running.product_values import product_values
from nimbrel.running.progress import ProgressBar
from nimbrel.seeding import seed as seed_engine
from nimbrel.simulator import Simulator

__all__ = ["expectation", "filter_for_values", "register_size", "totals"]

_BIT: Final = "StreamBitQPU"


def expectation(
    program: RecordArray,
    observable: Observable,
    *,
    filter: str | Simulator = "auto",  # noqa: A002 - the word of the documents
    seed: int | None = None,
    executor: AnyExecutor | None = None,
    progress: bool = False,
) -> Any:
    """The expectation value of a Pauli sum in the state that a program makes.

    The value is exact up to rounding: nothing is drawn. docs/architecture.md tells what each filter
    does; the dense one makes a pass over the state for each product of several letters.

    Args:
        program: The records; the first is the reset. It must not measure or set qubits behind a
            gate, except on a bit filter, where nothing is random.
        observable: A mapping from labels to coefficients, an iterable of pairs of label and
            coefficient, or an object with `to_list` that returns such pairs, such as Qiskit's
            SparsePauliOp. The leftmost letter of a label, I, X, Y or Z, is its highest qubit. A
            list of several of these gives an array.
        filter: As for `sample`.
        seed: The seed of `nimbrel.seed`, for programs with draws that change no value.
        executor: As for `sample`. The products of the observables are shared among the workers,
            each of which makes the state once. This pays if the products take longer than the
            program. A register of 14 or more qubits may give other last bits of a value than in
            this process, because the filters of workers have `max_num_threads=1`.
        progress: Whether a bar on standard error shows the progress.

    Returns:
        A float, or a complex number if a coefficient is complex; an array of shape (k,) for a list
        of k observables.

    Raises:
        TypeError: If a label is no string or a coefficient no number.
        ValueError: If the program does not begin with a reset, if its state is random, if a record
            is refused, if a label is wrong or longer than the register, if no filter fits, or if
            there are an executor and an open simulator.
        RuntimeError: The engine's error.
        WorkerLostError: As `sample`.
    """
    records = with_reset(program)
    if executor is not None:
        refuse_open_simulator(filter)
    sums, is_list = pauli_sums(observable, register_size(records))
    products = {product for each in sums for product in each}
    if executor is not None:
        name = filter_for_values(records, filter)
        if seed is not None:
            seed = word32(seed, "seed")
        values = distributed_products(records, products, name, seed, executor, progress=progress)
        return totals(sums, values, is_list=is_list)
    if seed is not None:
        seed_engine(seed)
    name = filter_for_values(records, filter)
    with ExitStack() as stack:
        if isinstance(filter, Simulator):
            simulator = filter
        else:
            simulator = stack.enter_context(Simulator(name))
        with (
            ProgressBar(len(records), "record", shown=progress) as bar,
            checked(simulator, records) as handle,
        ):
            put_in_calls(handle, records, first_call(simulator.filter_type, records), bar)
        return totals(sums, product_values(simulator, products), is_list=is_list)


def register_size(records: Program) -> int:
    """The qubits of the largest register of a program that begins with its reset."""
    return int(records["target_mask"][records["opcode"] == Opcode.RESET].max())


def filter_for_values(records: Program, filter_: str | Simulator) -> str:
    """The filter that gives the expectation values of a program.

    Args:
        records: The program.
        filter_: As for `sample`.

    Raises:
        ValueError: If no filter fits, or if the state is random.
    """
    if filter_ == "auto":
        name = choose_filter(records).name
    else:
        name = filter_.filter_type if isinstance(filter_, Simulator) else filter_
        check_local(name)
    if name != _BIT:
        _require_certain(records)
    return name


def totals(sums: Sequence[PauliSum], values: Mapping[PauliProduct, float], *, is_list: bool) -> Any:
    """The values of observables.

    Args:
        sums: The observables.
        values: The value of each product.
        is_list: Whether the caller gave a list.

    Returns:
        A number, or an array of shape (k,).
    """
    added = [
        sum(coefficient * values[product] for product, coefficient in each.items()) for each in sums
    ]
    return np.array(added) if is_list else added[0]


def _require_certain(records: Program) -> None:
    plan = defer(records)
    if isinstance(plan, NotDeferred):
        raise ValueError(f"record {plan.record} {plan.reason}, so the state may be random")
    if plan.measuring is not None:
        raise ValueError(
            f"record {plan.measuring} measures qubits, so the state is random; leave it out, or "
            "estimate the value from samples"
        )
