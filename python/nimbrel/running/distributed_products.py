"""The expectation values of Pauli products, shared among the workers of an executor.

Each worker makes the state once and keeps it until all values are found.
"""

import uuid
from collections.abc import Collection, Sequence
from typing import NamedTuple

import _lib_nb_sim

from nimbrel.records import Program
from nimbrel.running.bounded_calls import run_in_calls
from nimbrel.running.distribution import Work, distribute
from nimbrel.running.executor_source import AnyExecutor
from nimbrel.running.kept_filters import KeptFilter
from nimbrel.running.pauli_sums import PauliProduct
from nimbrel.running.product_values import product_values

__all__ = ["distributed_products"]


def distributed_products(
    records: Program,
    products: Collection[PauliProduct],
    filter_name: str,
    seed: int | None,
    executor: AnyExecutor,
    *,
    progress: bool,
) -> dict[PauliProduct, float]:
    """The expectation value of each product in the state of a program.

    Args:
        records: The program.
        products: The products.
        filter_name: The engine's name of the filter type.
        seed: Seeds each worker before it makes the state.
        executor: As for `sample`.
        progress: Whether a bar shows the progress.
    """
    # Sorted, since the order of a set may differ between runs, and products with the same letters X
    # are cheaper together.
    items = sorted(products)
    job = _ProductJob(uuid.uuid4().hex, records, filter_name, seed)
    values = distribute(Work(job, items, "product"), executor, progress=progress)
    return dict(zip(items, values, strict=True))


class _ProductJob(NamedTuple):
    """Values in one state; an item is a product."""

    state: str
    records: Program
    filter_name: str
    seed: int | None

    def run(self, first: int, items: Sequence[PauliProduct], kept: KeptFilter) -> list[float]:
        """Find some values."""
        del first
        return kept.in_turn(lambda: self._values(items, kept))

    def _values(self, items: Sequence[PauliProduct], kept: KeptFilter) -> list[float]:
        with kept.opened(self.filter_name, self.state) as simulator:
            if kept.state is None:
                if self.seed is not None:
                    _lib_nb_sim.random_seed(0, self.seed)
                run_in_calls(simulator, self.records)
                kept.state = self.state
            values = product_values(simulator, items)
            return [values[product] for product in items]
