"""The files and make targets that the documents name exist."""

from __future__ import annotations

import re
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[3]
DOCUMENTS = [*sorted(ROOT.glob("*.md")), *sorted((ROOT / "docs").glob("*.md"))]
IDS = [path.name for path in DOCUMENTS]

LINK = re.compile(r"\]\((?!https?:|#)(?P<path>[^)#]+)")
PATH = re.compile(r"\b(?:bench|cpp|docs|examples|python|tests|tools)/[\w*./-]*\w\*?")
MAKE_TARGET = re.compile(r"(?:`|^)make ([\w-]+)", re.MULTILINE)


@pytest.mark.parametrize("document", DOCUMENTS, ids=IDS)
def test_links_lead_to_files(document: Path) -> None:
    for found in LINK.finditer(document.read_text(encoding="utf-8")):
        assert (document.parent / found["path"]).exists(), found["path"]


@pytest.mark.parametrize("document", DOCUMENTS, ids=IDS)
def test_paths_exist(document: Path) -> None:
    for path in PATH.findall(document.read_text(encoding="utf-8")):
        assert list(ROOT.glob(path)), path


def test_make_has_the_targets_of_the_readme() -> None:
    makefile = (ROOT / "Makefile").read_text(encoding="utf-8")
    targets = MAKE_TARGET.findall((ROOT / "README.md").read_text(encoding="utf-8"))
    assert {"demo", "test"} <= set(targets)
    for target in targets:
        assert re.search(rf"^{target}:", makefile, re.MULTILINE), target
