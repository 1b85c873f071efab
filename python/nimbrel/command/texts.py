"""What the command prints for people."""

from __future__ import annotations

from typing import Final

from nimbrel.command.runs import Result
from nimbrel.records import Program

_MOST_LINES: Final = 32
_MOST_RATES: Final = 16


def listing(records: Program) -> list[str]:
    """One line for each record."""
    return str(records).splitlines()


def result_text(result: Result) -> str:
    """The outcomes as a table, the most frequent ones if there are many."""
    counts = result.samples.counts()
    shots = len(result.samples)
    chosen = sorted(sorted(counts, key=lambda name: (-counts[name], name))[:_MOST_LINES])
    rows = [(_grouped(name, result), counts[name]) for name in chosen]
    head = " ".join(reversed(list(result.registers)))
    width = max([len(head), *(len(name) for name, _ in rows)])
    number = max(len("shots"), *(len(f"{count:,}") for _, count in rows))
    lines = [f"{head:>{width}}  {'shots':>{number}}   share"]
    lines += [f"{name:>{width}}  {count:>{number},}  {count / shots:6.2%}" for name, count in rows]
    if len(counts) > len(rows):
        rest = shots - sum(count for _, count in rows)
        name = f"{len(counts) - len(rows):,} others"
        lines.append(f"{name:>{width}}  {rest:>{number},}  {rest / shots:6.2%}")
    lines += [_rate_line(name, rates) for name, rates in result.rates.items()]
    lines.append(
        f"{shots:,} shots in {result.seconds:.3g} s on {result.samples.filter_name}, because "
        f"{result.samples.reason}"
    )
    return "\n".join(lines)


def _grouped(outcome: str, result: Result) -> str:
    """An outcome with a space between registers; the first register is rightmost."""
    parts: list[str] = []
    end = len(outcome)
    for flags in result.registers.values():
        parts.append(outcome[end - len(flags) : end])
        end -= len(flags)
    return " ".join(reversed(parts))


def _rate_line(name: str, rates: list[float]) -> str:
    shown = ", ".join(f"{rate:.2%}" for rate in rates[:_MOST_RATES])
    rest = f", and {len(rates) - _MOST_RATES:,} more" if len(rates) > _MOST_RATES else ""
    verb = "fired" if name == "detectors" else "flipped"
    return f"{name} {verb} in {shown}{rest} of the shots"
