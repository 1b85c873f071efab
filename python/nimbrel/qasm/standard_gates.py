"""The gates of OpenQASM's standard libraries as lists of elementary operations.

The definitions are those of the libraries stdgates.inc and qelib1.inc: A. Cross et al., "OpenQASM
3: A Broader and Deeper Quantum Assembly Language", https://doi.org/10.1145/3505636, and A. Cross
et al., "Open Quantum Assembly Language", https://arxiv.org/abs/1707.03429. Every phase is exact, so
a controlled standard gate is the controlled gate of the language.
"""

from collections.abc import Callable, Mapping, Sequence
from typing import Final, NamedTuple

from nimbrel.opcodes import Opcode
from nimbrel.qasm.gate_calls import GateCall, controlled, degrees_of, u_calls

Calls = list[GateCall]
Build = Callable[[Sequence[float], Sequence[int]], Calls]


class StandardGate(NamedTuple):
    """A gate of a library.

    Attributes:
        parameters: Number of its angles.
        qubits: Number of its qubits.
        build: Makes its operations from the angles, in radians, and the qubits.
    """

    parameters: int
    qubits: int
    build: Build


def _plain(opcode: Opcode, num_controls: int = 0) -> StandardGate:
    def build(_angles: Sequence[float], qubits: Sequence[int]) -> Calls:
        return [GateCall(opcode, 0.0, (qubits[-1],), tuple(qubits[:-1]))]

    return StandardGate(0, num_controls + 1, build)


def _turning(opcode: Opcode, num_controls: int = 0) -> StandardGate:
    def build(angles: Sequence[float], qubits: Sequence[int]) -> Calls:
        return [GateCall(opcode, degrees_of(angles[0]), (qubits[-1],), tuple(qubits[:-1]))]

    return StandardGate(1, num_controls + 1, build)


def _swap(_angles: Sequence[float], qubits: Sequence[int]) -> Calls:
    return [GateCall(Opcode.SWAP, 0.0, tuple(qubits[-2:]), tuple(qubits[:-2]))]


def _identity(_angles: Sequence[float], _qubits: Sequence[int]) -> Calls:
    return []


def _u(angles: Sequence[float], qubits: Sequence[int]) -> Calls:
    theta, phi, lam = map(degrees_of, angles)
    return u_calls(theta, phi, lam, qubits[0])


def _built_in_u(angles: Sequence[float], qubits: Sequence[int]) -> Calls:
    # OpenQASM 3 gives its built-in gate the further phase theta / 2.
    return [*_u(angles, qubits), GateCall(Opcode.PHASE, degrees_of(angles[0]) / 2, ())]


def _u3(angles: Sequence[float], qubits: Sequence[int]) -> Calls:
    # The library's u3 and u2 have determinant 1.
    phase = -(degrees_of(angles[1]) + degrees_of(angles[2])) / 2
    return [*_u(angles, qubits), GateCall(Opcode.PHASE, phase, ())]


def _u2(angles: Sequence[float], qubits: Sequence[int]) -> Calls:
    phi, lam = map(degrees_of, angles)
    return [*u_calls(90.0, phi, lam, qubits[0]), GateCall(Opcode.PHASE, -(phi + lam) / 2, ())]


def _cu(angles: Sequence[float], qubits: Sequence[int]) -> Calls:
    control, target = qubits
    gate = _u(angles[:3], [target])
    phase = GateCall(Opcode.PHASE, degrees_of(angles[3]), (control,))
    return [phase, *controlled(gate, [control], [])]


def _cu3(angles: Sequence[float], qubits: Sequence[int]) -> Calls:
    # Later versions of qelib1.inc turn the control as well, which makes this the controlled u.
    control, target = qubits
    return controlled(_u(angles, [target]), [control], [])


def _rzz(angles: Sequence[float], qubits: Sequence[int]) -> Calls:
    a, b = qubits
    cnot = GateCall(Opcode.X, 0.0, (b,), (a,))
    return [cnot, GateCall(Opcode.RZ, degrees_of(angles[0]), (b,)), cnot]


_COMMON: Final[Mapping[str, StandardGate]] = {
    **{
        name: _plain(opcode)
        for name, opcode in {
            **{"x": Opcode.X, "y": Opcode.Y, "z": Opcode.Z, "h": Opcode.H, "s": Opcode.S},
            **{"sdg": Opcode.S_INV, "t": Opcode.T, "tdg": Opcode.T_INV, "sx": Opcode.ROOTX},
        }.items()
    },
    **{"cx": _plain(Opcode.X, 1), "cy": _plain(Opcode.Y, 1), "cz": _plain(Opcode.Z, 1)},
    **{"CX": _plain(Opcode.X, 1), "ch": _plain(Opcode.H, 1), "ccx": _plain(Opcode.X, 2)},
    **{"rx": _turning(Opcode.RX), "ry": _turning(Opcode.RY), "rz": _turning(Opcode.RZ)},
    **{"crx": _turning(Opcode.RX, 1), "cry": _turning(Opcode.RY, 1), "crz": _turning(Opcode.RZ, 1)},
    **{"p": _turning(Opcode.PHASE), "u1": _turning(Opcode.PHASE), "cp": _turning(Opcode.PHASE, 1)},
    "id": StandardGate(0, 1, _identity),
    "swap": StandardGate(0, 2, _swap),
    "cswap": StandardGate(0, 3, _swap),
    "u2": StandardGate(2, 1, _u2),
    "u3": StandardGate(3, 1, _u3),
    "cu": StandardGate(4, 2, _cu),
}

BUILT_IN: Final[Mapping[str, StandardGate]] = {"U": StandardGate(3, 1, _built_in_u)}
"""The gate that OpenQASM 3 has without a library."""

STDGATES: Final[Mapping[str, StandardGate]] = {
    **_COMMON,
    "phase": _turning(Opcode.PHASE),
    "cphase": _turning(Opcode.PHASE, 1),
}
"""The gates of stdgates.inc."""

QELIB1: Final[Mapping[str, StandardGate]] = {
    **_COMMON,
    "u": StandardGate(3, 1, _u),
    "U": StandardGate(3, 1, _u),
    "sxdg": _plain(Opcode.ROOTX_INV),
    "csx": _plain(Opcode.ROOTX, 1),
    "ccz": _plain(Opcode.Z, 2),
    "mcx": StandardGate(0, 4, _plain(Opcode.X, 3).build),
    "u0": StandardGate(1, 1, _identity),
    "cu1": _turning(Opcode.PHASE, 1),
    "cu3": StandardGate(3, 2, _cu3),
    "rzz": StandardGate(1, 2, _rzz),
}
"""The gates of qelib1.inc, with those that later versions of that library have added."""
