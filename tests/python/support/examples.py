"""Helpers of the examples' tests: a script run as its users run it, or imported for its parts."""

from __future__ import annotations

import contextlib
import importlib
import re
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from types import ModuleType

EXAMPLES = Path(__file__).parents[3] / "examples"


class Example:
    """One script among the examples.

    Attributes:
        name: Its file's name without the ending.
        usage: What its usage line says behind the file's name.
    """

    def __init__(self, name: str, usage: str) -> None:
        self.name = name
        self.usage = usage

    def command(self, *arguments: str) -> list[str]:
        """The command line of a run with this interpreter."""
        return [sys.executable, str(EXAMPLES / f"{self.name}.py"), *arguments]

    def output(self, *arguments: str) -> str:
        """What a successful run prints; its output is not a terminal."""
        done = subprocess.run(self.command(*arguments), capture_output=True, text=True, check=False)
        assert (done.returncode, done.stderr) == (0, "")
        return done.stdout

    def figures(self, *arguments: str) -> dict[str, str]:
        """The printed lines of a successful run, by their name."""
        return dict(re.split(r" {2,}", line) for line in self.output(*arguments).splitlines())

    def assert_refuses(self, arguments: list[str], message: str) -> None:
        """Runs the script and expects one line about these arguments, and nothing else."""
        done = subprocess.run(self.command(*arguments), capture_output=True, text=True, check=False)
        assert (done.returncode, done.stdout) == (2, "")
        assert done.stderr == f"usage: {self.name}.py {self.usage}: {message}\n"

    @contextlib.contextmanager
    def imported(self) -> Iterator[ModuleType]:
        """The script as a module, not run; meanwhile it finds the scripts beside it."""
        sys.path.insert(0, str(EXAMPLES))
        try:
            yield importlib.import_module(self.name)
        finally:
            sys.path.remove(str(EXAMPLES))
