"""The command `nimbrel`: runs and shows programs from files. Needs the extra "command".

nimbrel run bell.qasm --shots 1000
nimbrel show bell.qasm
nimbrel info
"""

import sys

__all__ = ["main"]


def main() -> None:
    """Run the command with the arguments of the process; ends the process."""
    try:
        import click as _click  # noqa: F401
    except ModuleNotFoundError:
        print("nimbrel: the command needs Click: pip install nimbrel[command]", file=sys.stderr)
        sys.exit(2)
    from nimbrel.command.arguments import command

    try:
        command(prog_name="nimbrel")
    except OSError as error:  # a help text that cannot be written
        print(f"Error: {error}", file=sys.stderr)
        sys.exit(2)
