"""The notebooks of the documentation site run, and say what they claim."""

from __future__ import annotations

import importlib
import re
import warnings
from pathlib import Path
from typing import Any

import pytest

for package in ("qiskit", "pennylane", "openqasm3", "stim", "IPython", "latex2mathml"):
    pytest.importorskip(package, reason="the extra docs is not installed")
matplotlib: Any = pytest.importorskip("matplotlib")

DOCS = Path(__file__).parents[4] / "docs"
CELL = re.compile(r"^```\{code-cell\} ipython3\n((?::.*\n)*)(.*?)^```$", re.MULTILINE | re.DOTALL)
MOST_LINES = 10


def cells_of(page: Path) -> list[str]:
    return [code for _, code in CELL.findall(page.read_text(encoding="utf-8"))]


NOTEBOOKS = [page for page in sorted(DOCS.rglob("*.md")) if cells_of(page)]


@pytest.fixture(autouse=True)
def no_windows(monkeypatch: pytest.MonkeyPatch, tmp_path: Path) -> None:
    """Figures go to files, as when the site is built."""
    matplotlib.use("Agg")
    monkeypatch.chdir(tmp_path)


@pytest.fixture(autouse=True)
def closed_figures() -> Any:
    """No figure outlives its page."""
    yield
    importlib.import_module("matplotlib.pyplot").close("all")


def run_cells(cells: list[str], name: str) -> None:
    scope: dict[str, Any] = {"__name__": name}
    with warnings.catch_warnings():
        warnings.simplefilter("default")  # those of other packages are not ours to fail on
        for cell in cells:
            exec(compile(cell, name, "exec"), scope)


@pytest.mark.slow
@pytest.mark.parametrize("page", NOTEBOOKS, ids=lambda page: page.stem)
def test_notebooks_run(page: Path) -> None:
    run_cells(cells_of(page), page.name)


TASKS = cells_of(DOCS / "tutorials/eight_tasks.md")


def test_there_are_eight_tasks() -> None:
    assert len(TASKS) == 8


@pytest.mark.parametrize("place", range(8))
def test_a_task_is_short_and_runs_alone(place: int) -> None:
    lines = [line for line in TASKS[place].splitlines() if line.strip()]
    assert len(lines) <= MOST_LINES
    run_cells([TASKS[place]], f"task {place}")
