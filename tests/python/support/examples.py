"""Helpers of the examples' tests: runs a script in a process of its own or in this process."""

from __future__ import annotations

import contextlib
import importlib
import io
import re
import subprocess
import sys
from collections.abc import Iterator
from pathlib import Path
from types import ModuleType
from typing import NamedTuple

from support.remote import LONG

EXAMPLES = Path(__file__).parents[3] / "examples"


class Run(NamedTuple):
    """The exit status of a run and what it has printed."""

    status: object
    out: str
    err: str

    def figures(self) -> dict[str, str]:
        """The printed lines of a successful run, by their name."""
        assert (self.status, self.err) == (0, "")
        return dict(re.split(r" {2,}", line) for line in self.out.splitlines())


class Example:
    """One script among the examples.

    Attributes:
        name: The file's name without its ending.
        usage: The part of its usage line after the file's name.
    """

    def __init__(self, name: str, usage: str) -> None:
        self.name = name
        self.usage = usage

    def command(self, *arguments: str) -> list[str]:
        """The command line of a run with this interpreter."""
        return [sys.executable, str(EXAMPLES / f"{self.name}.py"), *arguments]

    def run_as_script(self, *arguments: str) -> Run:
        """Runs the script in a process of its own. Its output is not a terminal."""
        done = subprocess.run(
            self.command(*arguments), capture_output=True, text=True, check=False, timeout=LONG
        )
        return Run(done.returncode, done.stdout, done.stderr)

    def run(self, *arguments: str) -> Run:
        """Calls the script's `main` in this process, which saves the start of an interpreter."""
        out, err = io.StringIO(), io.StringIO()
        with (
            self.imported() as module,
            contextlib.redirect_stdout(out),
            contextlib.redirect_stderr(err),
        ):
            try:
                status = module.main(list(arguments))
            except SystemExit as end:
                status = end.code
        return Run(status, out.getvalue(), err.getvalue())

    def assert_refuses(self, arguments: list[str], message: str) -> None:
        """Runs the script and expects one line about these arguments, and nothing else."""
        usage = f"usage: {self.name}.py {self.usage}: {message}\n"
        assert self.run(*arguments) == Run(2, "", usage)

    @contextlib.contextmanager
    def imported(self) -> Iterator[ModuleType]:
        """The script as a module, not run. Undoes what scripts change in the interpreter."""
        has_limit = hasattr(sys, "set_int_max_str_digits")  # early releases of 3.10 have none
        limit = sys.get_int_max_str_digits() if has_limit else 0
        sys.path.insert(0, str(EXAMPLES))  # a script finds the scripts beside it
        try:
            yield importlib.import_module(self.name)
        finally:
            sys.path.remove(str(EXAMPLES))
            if has_limit:
                sys.set_int_max_str_digits(limit)
