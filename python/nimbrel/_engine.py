"""Calls of the engine, and checks of the integers that the engine takes.

Only this package uses this module.
"""

import operator
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import ParamSpec, TypeVar

P = ParamSpec("P")
R = TypeVar("R")


def call(function: Callable[P, R], *args: P.args, **kwargs: P.kwargs) -> R:
    """Call an engine function and raise the engine's own error.

    A failing engine function sets `RuntimeError` and still returns a result. The interpreter
    reports this as a `SystemError` whose cause is the `RuntimeError`. This function raises the
    cause.

    Args:
        function: A function of `_lib_nb_sim`.
        *args: Its arguments.
        **kwargs: Not used: the engine takes positional arguments only.

    Raises:
        RuntimeError: The engine's error, with the engine's text.
    """
    try:
        return function(*args, **kwargs)
    except SystemError as error:
        cause = error.__cause__
        if not isinstance(cause, RuntimeError):
            raise
    raise cause from None


@contextmanager
def engine_errors() -> Iterator[None]:
    """Raise the engine's own error from a block that calls the engine many times.

    The block calls the functions of the engine directly, which saves the calls of `call`.

    Raises:
        RuntimeError: The engine's error, with the engine's text.
    """
    try:
        yield
    except SystemError as error:
        cause = error.__cause__
        if not isinstance(cause, RuntimeError):
            raise
        raise cause from None


def word32(value: int, name: str) -> int:
    """Check an integer that the engine takes as an unsigned 32-bit word, and return it.

    Args:
        value: The integer.
        name: The argument's name, for the message.

    Raises:
        TypeError: If `value` is not an integer.
        ValueError: If `value` does not fit.
    """
    # The engine's parser truncates a larger number to 32 bits without an error.
    number = operator.index(value)
    if not 0 <= number < 2**32:
        raise ValueError(f"{name} must be an unsigned 32-bit number, not {value}")
    return number


def check_flag_range(first: int, count: int) -> None:
    """Check the numbers of consecutive read flags. The engine takes signed 32-bit numbers.

    Args:
        first: The first flag.
        count: The number of flags.

    Raises:
        ValueError: If `count` is negative, or a flag number does not fit.
    """
    if count < 0 or first < -(2**31) or first + count > 2**31:
        raise ValueError(f"flags {first} to {first + count - 1} cannot be fetched")
