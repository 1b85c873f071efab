"""The check of the includes between folders finds wrong includes."""

import subprocess
import sys
from pathlib import Path

import pytest

ROOT = next(path for path in Path(__file__).parents if (path / "pyproject.toml").exists())


def check(sources: Path) -> subprocess.CompletedProcess[str]:
    tool = ROOT / "tools" / "include_graph.py"
    return subprocess.run(
        [sys.executable, str(tool), str(sources)], capture_output=True, text=True, check=False
    )


def put(root: Path, path: str, text: str) -> None:
    file = root / path
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(text, encoding="utf-8")


@pytest.fixture
def sources(tmp_path: Path) -> Path:
    """Three libraries, each of which includes and links the one below it."""
    put(tmp_path, "low/CMakeLists.txt", "add_library(low STATIC low.cpp)")
    put(tmp_path, "low/low.h", "#pragma once\n")
    put(
        tmp_path,
        "high/middle/CMakeLists.txt",
        "add_library(middle STATIC a.cpp)\ntarget_link_libraries(middle PUBLIC low)",
    )
    put(tmp_path, "high/middle/a.cpp", '#include <vector>\n#include "low/low.h"\n')
    put(
        tmp_path,
        "high/CMakeLists.txt",
        "python_add_library(\n  high MODULE a.cpp)\ntarget_link_libraries(\n  high PRIVATE middle)",
    )
    put(tmp_path, "high/a.cpp", '#include "low/low.h"\n#include "high/a.h"\n')
    return tmp_path


def test_folders_that_link_what_they_include_pass(sources: Path) -> None:
    result = check(sources)
    assert result.returncode == 0, result.stderr
    assert result.stdout == "high: low\nhigh/middle: low\nlow: \n3 folders, 2 arrows\n"


def test_an_include_against_the_links_is_found(sources: Path) -> None:
    put(sources, "low/low.cpp", '#include "high/middle/a.h"\n')
    result = check(sources)
    assert result.returncode == 1
    assert result.stderr == "error: low includes high/middle and does not link it\n"


def test_libraries_that_link_each_other_are_found(sources: Path) -> None:
    put(
        sources,
        "low/CMakeLists.txt",
        "add_library(low STATIC low.cpp)\ntarget_link_libraries(low PUBLIC middle)",
    )
    result = check(sources)
    assert result.returncode == 1
    assert "error: low links itself\n" in result.stderr


def test_too_many_folders_are_found(sources: Path) -> None:
    for number in range(12):
        put(sources, f"more{number}/a.cpp", "")
    result = check(sources)
    assert result.returncode == 1
    assert result.stderr == "error: 15 folders; at most 14\n"


def test_too_many_arrows_are_found(sources: Path) -> None:
    includes = "".join(f'#include "more{number}/a.h"\n' for number in range(9))
    links = " ".join(f"more{number}" for number in range(9))
    for number in range(9):
        put(sources, f"more{number}/CMakeLists.txt", f"add_library(more{number} STATIC a.cpp)")
        put(sources, f"more{number}/a.cpp", "")
    put(
        sources,
        "low/CMakeLists.txt",
        f"add_library(low STATIC low.cpp)\ntarget_link_libraries(low PUBLIC {links})",
    )
    for folder in ("low", "high", "high/middle"):
        put(sources, f"{folder}/all.cpp", includes)
    assert check(sources).returncode == 0
    extra = "add_library(more0 STATIC a.cpp)\ntarget_link_libraries(more0 PUBLIC more1 more2 more3"
    put(sources, "more0/CMakeLists.txt", f"{extra} more4 more5 more6 more7)")
    put(sources, "more0/a.cpp", "".join(f'#include "more{n}/a.h"\n' for n in range(1, 8)))
    result = check(sources)
    assert result.returncode == 1
    assert result.stderr == "error: 36 arrows; at most 35\n"
