"""Importing the package does not import the service."""

from __future__ import annotations

import subprocess
import sys

SCRIPT = """
import sys
import nimbrel
print([name for name in ("asyncio", "nimbrel.service") if name in sys.modules])
"""


def test_the_package_imports_no_service() -> None:
    done = subprocess.run(
        [sys.executable, "-c", SCRIPT], capture_output=True, text=True, check=True
    )
    assert done.stdout == "[]\n"
