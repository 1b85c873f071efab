"""Every Python block of the documents runs, and prints what the comments beside it say."""

from __future__ import annotations

import re
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest
from nimbrel import RemoteSimulator

from support.documents import assert_blocks_print
from support.service import service_of

ROOT = Path(__file__).parents[3]
DOCUMENTS = ["README.md", *sorted(f"docs/{path.name}" for path in (ROOT / "docs").glob("*.md"))]
# The port that the README names. The machine may use it already, so the test takes a free one.
README_PORT = 7376


def text_of(name: str) -> str:
    return (ROOT / name).read_text(encoding="utf-8")


@pytest.fixture
def readme_service(monkeypatch: pytest.MonkeyPatch) -> Iterator[None]:
    """The service that the README says to start, on a free port."""
    connect = RemoteSimulator.connect

    with service_of("--filter", "StreamBitQPU", "--quiet") as service:

        def connect_to_free_port(
            sim: RemoteSimulator, host: str, port: int, **options: Any
        ) -> None:
            assert port == README_PORT
            connect(sim, host, service.port, **options)

        monkeypatch.setattr(RemoteSimulator, "connect", connect_to_free_port)
        yield


@pytest.mark.usefixtures("readme_service")
@pytest.mark.parametrize("name", [name for name in DOCUMENTS if "```python" in text_of(name)])
def test_blocks_run_in_order(name: str, capsys: pytest.CaptureFixture[str]) -> None:
    assert_blocks_print(ROOT / name, capsys)


@pytest.mark.parametrize("name", ["README.md", "docs/records.md"])
def test_authors_find_a_program(name: str) -> None:
    assert "```python" in text_of(name)


def test_the_program_without_the_companion_is_short() -> None:
    blocks = re.findall(r"```python\n(.*?)```", text_of("docs/records.md"), re.DOTALL)
    (block,) = [block for block in blocks if "_lib_nb_sim" in block]
    assert len(block.splitlines()) <= 30
    assert re.findall(r"^(?:import|from) (\w+)", block, re.MULTILINE) == ["_lib_nb_sim", "numpy"]
