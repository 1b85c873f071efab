"""Fixtures of the engine's tests."""

from __future__ import annotations

import random
import zlib
from collections.abc import Iterator
from types import ModuleType

import _lib_nb_sim
import pytest
from hypothesis import HealthCheck, settings

from support.driver import BitFilter, open_bit_filter

# No deadline, because machines differ. By default every run has the same examples. Other and more
# examples: pytest --hypothesis-profile=thorough
ON_ANY_MACHINE = settings(
    deadline=None, suppress_health_check=[HealthCheck.too_slow], report_multiple_bugs=False
)
settings.register_profile("repeatable", ON_ANY_MACHINE, derandomize=True)
settings.register_profile("thorough", ON_ANY_MACHINE, max_examples=1000)
settings.load_profile("repeatable")


@pytest.fixture(scope="session")
def engine() -> ModuleType:
    """The extension module, without the companion."""
    return _lib_nb_sim


@pytest.fixture
def bit_filter(engine: ModuleType) -> Iterator[int]:
    """The handle of a bit filter without a register; the filter is freed after the test."""
    handle = engine.new_native_filter("StreamBitQPU")
    yield handle
    engine.delete_native_filter(handle)


@pytest.fixture
def bits(engine: ModuleType) -> Iterator[BitFilter]:
    """A driver over a bit filter without a register; the filter is freed after the test."""
    with open_bit_filter(engine) as driver:
        yield driver


@pytest.fixture
def rng(request: pytest.FixtureRequest) -> random.Random:
    """A generator seeded from the test's own name: a failure repeats when the test runs alone."""
    seed = zlib.crc32(request.node.name.encode())
    print(f"{request.node.name}: random seed {seed}")  # pytest shows it with a failure only
    return random.Random(seed)
