"""A pause of Python's garbage collection."""

import contextlib
import gc
from collections.abc import Iterator


@contextlib.contextmanager
def without_collection() -> Iterator[None]:
    """Switch the collection off while a parser makes many objects and no garbage.

    Collections would take a quarter of its time.
    """
    was_enabled = gc.isenabled()
    gc.disable()
    try:
        yield
    finally:
        if was_enabled:
            gc.enable()
