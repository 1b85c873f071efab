"""PennyLane on Nimbrel: the device `nimbrel.qubit`.

    import pennylane as qml

    dev = qml.device("nimbrel.qubit", wires=2)

This package needs the extra `pennylane`: pip install nimbrel[pennylane].
"""

from nimbrel.pennylane.device import NimbrelQubit

__all__ = ["NimbrelQubit"]
