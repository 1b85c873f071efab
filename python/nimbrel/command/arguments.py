"""The arguments of the command, by Click."""

from __future__ import annotations

import functools
import json
from collections.abc import Callable
from pathlib import Path
from typing import Any, Final, NoReturn, TypeVar

import click

from nimbrel.command.info import facts, facts_text
from nimbrel.command.pictures import save_counts
from nimbrel.command.programs import read_program
from nimbrel.command.runs import Result, run_file
from nimbrel.command.texts import listing, result_text

_Function = TypeVar("_Function", bound=Callable[..., Any])

FILTERS: Final = {
    "auto": "auto",
    "dense": "StreamQPU",
    "sparse": "StreamSparseQPU",
    "bit": "StreamBitQPU",
    "clifford": "StreamCliffordQPU",
}
_MOST_SEED: Final = 2**32 - 1


class CommandError(click.ClickException):
    """An error that ends the command."""

    exit_code = 2

    def format_message(self) -> str:
        """The text behind "Error: "."""
        return self.message


def _with_errors(function: _Function) -> _Function:
    """Let an error that a file, an argument or the engine causes end the command with status 2."""

    @functools.wraps(function)
    def wrapped(*args: Any, **kwargs: Any) -> Any:
        try:
            return function(*args, **kwargs)
        except (OSError, ValueError, ImportError, RuntimeError, MemoryError) as error:
            _refuse(error)

    return wrapped  # type: ignore[return-value]


def _refuse(error: BaseException) -> NoReturn:
    text = str(error).removeprefix("Error: ").strip() or type(error).__name__
    raise CommandError(text) from error


_FILE: Final = click.argument(
    "file", type=click.Path(exists=True, dir_okay=False, path_type=Path), metavar="FILE"
)
_JSON: Final = click.option("--json", "as_json", is_flag=True, help="Write JSON for machines.")


@click.group(context_settings={"help_option_names": ["-h", "--help"]})
@click.version_option(package_name="nimbrel")
def command() -> None:
    """Simulate quantum programs: OpenQASM 2 and 3 (.qasm), Stim (.stim), records (.npy)."""


@command.command()
@_FILE
@click.option("--shots", type=click.IntRange(min=1), default=1000, show_default=True)
@click.option(
    "--filter",
    "filter_name",
    type=click.Choice(list(FILTERS), case_sensitive=False),
    default="auto",
    show_default=True,
    help="The simulator.",
)
@click.option("--seed", type=click.IntRange(0, _MOST_SEED), help="Make the outcomes repeat.")
@click.option(
    "--plot", type=click.Path(dir_okay=False, path_type=Path), help="Draw the counts into a file."
)
@click.option("--mpi", "on_ranks", is_flag=True, help="Run on all processes that mpirun started.")
@_JSON
@_with_errors
def run(
    file: Path,
    shots: int,
    filter_name: str,
    seed: int | None,
    plot: Path | None,
    on_ranks: bool,
    as_json: bool,
) -> None:
    """Run FILE many times and count the outcomes of its classical bits."""
    filter_ = FILTERS[filter_name.lower()]
    run_it = _on_ranks if on_ranks else run_file
    result = run_it(file, shots, filter_, seed)
    if result is None:  # another rank shows it
        return
    if plot is not None:
        save_counts(result, plot)
    click.echo(json.dumps(result.as_json(), indent=2) if as_json else result_text(result))


def _on_ranks(file: Path, shots: int, filter_: str, seed: int | None) -> Result | None:
    if filter_ not in ("auto", "StreamQPU"):
        raise ValueError("only a dense register lies on many ranks, so --mpi takes --filter dense")
    from nimbrel.command.ranks import run_on_ranks

    return run_on_ranks(file, shots, seed)


@command.command()
@_FILE
@_JSON
@_with_errors
def show(file: Path, as_json: bool) -> None:
    """Show the records of FILE and the simulator that would run it."""
    read = read_program(file)
    choice = read.choice
    if as_json:
        shown = {
            "file": str(file),
            "qubits": read.num_qubits,
            "records": listing(read.program),
            "back_jumps": [jump._asdict() for jump in read.back_jumps],
            "registers": {name: list(flags) for name, flags in read.registers.items()},
            "filter": choice.name,
            "reason": choice.reason,
        }
        click.echo(json.dumps(shown, indent=2))
        return
    click.echo("\n".join(listing(read.program)))
    for jump in read.back_jumps:
        click.echo(
            f"before record {jump.position}: back to record {jump.destination} "
            f"if read flag {jump.flag} is 1"
        )
    for name, flags in read.registers.items():
        click.echo(f"{name}: read flags {flags[0]} to {flags[-1]}")
    click.echo(f"runs on {choice.name}, because {choice.reason}")


@command.command()
@_JSON
@_with_errors
def info(as_json: bool) -> None:
    """Show the version, the processor, the memory and the extras that are installed."""
    found = facts()
    click.echo(json.dumps(found, indent=2) if as_json else facts_text(found))
