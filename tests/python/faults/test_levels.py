"""The criterion of a soak: what counts as growth."""

from __future__ import annotations

import importlib.util
from pathlib import Path
from types import ModuleType

import pytest

MODULE = Path(__file__).parents[3] / "bench" / "soak" / "levels.py"


@pytest.fixture(scope="module")
def levels() -> ModuleType:
    spec = importlib.util.spec_from_file_location("levels", MODULE)
    assert spec is not None
    assert spec.loader is not None
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def test_growth_in_the_first_quarter_does_not_count(levels: ModuleType) -> None:
    series = [levels.Level(5 << 20, 3, 1)] * 2 + [levels.Level(50 << 20, 9, 2)] * 6
    assert levels.trends_of(series) == []


@pytest.mark.parametrize(
    ("name", "step", "least"),
    [("resident", 1 << 19, 1 << 20), ("descriptors", 1, 0), ("threads", 1, 0)],
)
def test_what_grows_is_named(levels: ModuleType, name: str, step: int, least: int) -> None:
    start = levels.Level(1 << 25, 10, 2)
    series = [start._replace(**{name: getattr(start, name) + step * i}) for i in range(8)]
    (text,) = levels.trends_of(series)
    assert text == f"{name} has grown by {4 * step}"
    assert 4 * step > least


def test_a_level_series_has_no_trend(levels: ModuleType) -> None:
    series = [levels.Level((30 << 20) + (i % 3) * 4096, 7, 2) for i in range(20)]
    assert levels.trends_of(series) == []


def test_too_few_samples_are_refused(levels: ModuleType) -> None:
    with pytest.raises(ValueError, match="7 samples are too few; 8 are needed"):
        levels.trends_of([levels.Level(1, 1, 1)] * 7)


def test_this_process_has_a_level(levels: ModuleType) -> None:
    level = levels.level_of()
    assert level.resident > 1 << 20
    assert level.descriptors >= 3
    assert level.threads >= 1
