"""`expectation`: expectation values of Pauli sums in the state that a program makes."""

from contextlib import ExitStack
from typing import Any, Final

import numpy as np

from nimbrel.bounded_calls import checked, first_call, put_in_calls
from nimbrel.deferral import NotDeferred, defer
from nimbrel.filter_choice import check_local, choose_filter, with_reset
from nimbrel.pauli_sums import Observable, pauli_sums
from nimbrel.product_values import product_values
from nimbrel.progress import ProgressBar
from nimbrel.records import Program, RecordArray
from nimbrel.seeding import seed as seed_engine
from nimbrel.simulator import Simulator

__all__ = ["expectation"]

_BIT: Final = "StreamBitQPU"


def expectation(
    program: RecordArray,
    observable: Observable,
    *,
    filter: str | Simulator = "auto",  # noqa: A002 - the word of the documents
    seed: int | None = None,
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
        progress: Whether a bar on standard error shows the progress.

    Returns:
        A float, or a complex number if a coefficient is complex; an array of shape (k,) for a list
        of k observables.

    Raises:
        TypeError: If a label is no string or a coefficient no number.
        ValueError: If the program does not begin with a reset, if its state is random, if a record
            is refused, if a label is wrong or longer than the register, or if no filter fits.
        RuntimeError: The engine's error.
    """
    records = with_reset(program)
    sums, is_list = pauli_sums(observable, int(records["target_mask"][0]))
    if seed is not None:
        seed_engine(seed)
    with ExitStack() as stack:
        check_local(filter.filter_type if isinstance(filter, Simulator) else filter)
        if isinstance(filter, Simulator):
            simulator = filter
        else:
            name = choose_filter(records).name if filter == "auto" else filter
            simulator = stack.enter_context(Simulator(name))
        if simulator.filter_type != _BIT:
            _require_certain(records)
        with (
            ProgressBar(len(records), "record", shown=progress) as bar,
            checked(simulator, records) as handle,
        ):
            put_in_calls(handle, records, first_call(simulator.filter_type, records), bar)
        values = product_values(simulator, {product for each in sums for product in each})
    totals = [
        sum(coefficient * values[product] for product, coefficient in each.items()) for each in sums
    ]
    return np.array(totals) if is_list else totals[0]


def _require_certain(records: Program) -> None:
    plan = defer(records)
    if isinstance(plan, NotDeferred):
        raise ValueError(f"record {plan.record} {plan.reason}, so the state may be random")
    if plan.measuring is not None:
        raise ValueError(
            f"record {plan.measuring} measures qubits, so the state is random; leave it out, or "
            "estimate the value from samples"
        )
