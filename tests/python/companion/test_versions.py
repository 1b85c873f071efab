"""What a front end can ask about the package and the records that it takes."""

import re
import subprocess
import sys
from pathlib import Path

import nimbrel as nb
import pytest

PYPROJECT = Path(__file__).parents[3] / "pyproject.toml"

# The fields of format 1. Other fields are another format.
WORDS_OF_FORMAT_1 = [
    ("opcode", "<u8"),
    ("target_mask", "<u8"),
    ("cond_mask", "<u8"),
    ("angle", "<f8"),
    ("cond_flag", "<i8"),
    ("read_flag", "<i8"),
    ("cond_neg_mask", "<u8"),
    ("target_offset", "<u8"),
    ("cond_offset", "<u8"),
    ("reserved_a", "<u8"),
    ("reserved_b", "<u8"),
]


def test_the_version_is_that_of_the_project() -> None:
    (version,) = re.findall(r'^version = "(.+)"$', PYPROJECT.read_text(encoding="utf-8"), re.M)
    assert nb.__version__ == version


def test_an_import_does_not_search_the_installed_packages() -> None:
    program = "import sys, nimbrel; print('importlib.metadata' in sys.modules, end='')"
    command = [sys.executable, "-c", program]
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    assert done.stdout == "False"


def test_other_names_are_missing() -> None:
    with pytest.raises(AttributeError, match="'nimbrel' has no attribute 'versoin'"):
        _ = nb.versoin  # type: ignore[attr-defined]
    assert "__version__" in dir(nb)


def test_records_of_this_layout_are_format_1() -> None:
    assert nb.RECORD_FORMAT == 1
    assert nb.QPU_OP.descr == WORDS_OF_FORMAT_1
