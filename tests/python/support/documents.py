"""Runs the Python blocks of documents and compares what they print with the comments beside it."""

from __future__ import annotations

import re
from pathlib import Path

import pytest
from sybil.document import Document
from sybil.example import Example
from sybil.parsers.markdown import PythonCodeBlockParser

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
    example.evaluate()
    assert capsys.readouterr().out == documented_output(example.parsed)


def assert_blocks_print(path: Path, capsys: pytest.CaptureFixture[str]) -> None:
    """Every Python block of a document runs, in order, and prints what its comments say."""
    for example in Document.parse(str(path), PythonCodeBlockParser()).examples():
        assert_prints(example, capsys)
