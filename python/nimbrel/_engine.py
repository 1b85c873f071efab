"""The one place where the package calls the engine.

Every engine function reports a failure by setting `RuntimeError` and returning a result
all the same. The interpreter turns that pair into a `SystemError` whose cause is the
`RuntimeError`; callers of this package want the cause.
"""

import operator
from collections.abc import Callable
from typing import ParamSpec, TypeVar

P = ParamSpec("P")
R = TypeVar("R")


def _call(function: Callable[P, R], *args: P.args, **kwargs: P.kwargs) -> R:
    """Call an engine function and raise its own error.

    Args:
        function: A function of `_lib_nb_sim`.
        *args: Its arguments.
        **kwargs: None in practice: the engine takes positional arguments only.

    Raises:
        RuntimeError: What the engine reports, with the engine's text.
    """
    try:
        return function(*args, **kwargs)
    except SystemError as error:
        cause = error.__cause__
        if not isinstance(cause, RuntimeError):
            raise
    raise cause from None


def _word32(value: int, name: str) -> int:
    """Check a number that the engine takes as an unsigned 32-bit one.

    Args:
        value: The number.
        name: What it is, for the message.

    Raises:
        TypeError: If it is not an integer.
        ValueError: If it does not fit.
    """
    # The engine's parser cuts a number that is too large down to 32 bits without a word.
    number = operator.index(value)
    if not 0 <= number < 2**32:
        raise ValueError(f"{name} must be an unsigned 32-bit number, not {value}")
    return number


def _flag_range(first: int, count: int) -> None:
    """Check the numbers of consecutive read flags, which the engine takes as signed 32-bit ones.

    Raises:
        ValueError: If `count` is negative, or a flag's number does not fit.
    """
    if count < 0 or first < -(2**31) or first + count > 2**31:
        raise ValueError(f"flags {first} to {first + count - 1} cannot be fetched")
