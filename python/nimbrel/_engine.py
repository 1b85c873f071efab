"""The one place where the package calls the engine.

Every engine function reports a failure by setting `RuntimeError` and returning a result
all the same. The interpreter turns that pair into a `SystemError` whose cause is the
`RuntimeError`; callers of this package want the cause.
"""

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
