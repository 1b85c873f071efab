"""PennyLane itself, as a module without types.

PennyLane has no type annotations that a checker can use, so its module is an `Any` here. Every
other module of this package takes PennyLane from this one.
"""

import importlib
from typing import Any


def _load() -> Any:
    try:
        return importlib.import_module("pennylane")
    except ImportError as error:
        raise ImportError(
            "nimbrel.pennylane needs PennyLane: pip install nimbrel[pennylane]"
        ) from error


qml: Any = _load()
