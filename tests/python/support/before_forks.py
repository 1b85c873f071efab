"""Calls that a process makes when it forks. Import this before the package to make them last."""

import os
from collections.abc import Callable

before_forks: list[Callable[[], None]] = []


def _make_calls() -> None:
    for call in tuple(before_forks):
        call()


os.register_at_fork(before=_make_calls)
