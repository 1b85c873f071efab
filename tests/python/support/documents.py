"""Python blocks of documents, and what the comments beside their calls of print say."""

from __future__ import annotations

import re
from pathlib import Path

import pytest
from sybil.document import Document
from sybil.example import Example
from sybil.parsers.markdown import PythonCodeBlockParser

ROOT = Path(__file__).parents[3]

CALL_OF_PRINT = re.compile(r"^ *print\(.*$", re.MULTILINE)
COMMENTED_PRINT = re.compile(r"^ *print\(.*\)  # (?P<output>[^:\n]*)(: .*)?$")


def documented_output(source: str) -> str:
    """What the block prints according to its comments: `print(x)  # output: explanation`."""
    lines = []
    for call in CALL_OF_PRINT.findall(source):
        commented = COMMENTED_PRINT.match(call)
        assert commented is not None, f"no comment tells what this prints: {call}"
        lines.append(commented["output"] + "\n")
    return "".join(lines)


def assert_prints(example: Example, capsys: pytest.CaptureFixture[str]) -> None:
    """Run a block and compare its output with its comments."""
    example.evaluate()
    assert capsys.readouterr().out == documented_output(example.parsed)


def assert_blocks_run(name: str, capsys: pytest.CaptureFixture[str]) -> None:
    """Run the Python blocks of a document in order, in one namespace."""
    for example in Document.parse(str(ROOT / name), PythonCodeBlockParser()).examples():
        assert_prints(example, capsys)
