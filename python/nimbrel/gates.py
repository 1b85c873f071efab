"""Builders of the gates.

Every builder returns a one-dimensional `QPU_OP` array: extension records first, the
gate's own record last. Qubits are an int or an iterable of ints, qubit 0 being the
least significant; a gate with several targets acts on each of them. Keyword arguments
common to all:

    controls   qubits that must be 1 for the gate to act
    zeros      qubits that must be 0 for the gate to act; on a Clifford filter `Simulator.run`
               refuses them, since that filter takes them for controls
    flag       the classical condition: a read flag that must be 1 (a negative number:
               that must be 0); 0, the default, always holds and -1 never

All raise `ValueError` for a negative qubit, a qubit given twice, a qubit in both
`controls` and `zeros`, and a gate without the qubits that it needs; `TypeError` for a
qubit or a flag that is not an integer.
"""

from collections.abc import Callable
from typing import Protocol

from nimbrel.masks import Qubits, control_lists, qubit_list, spread
from nimbrel.opcodes import Opcode
from nimbrel.records import Record, RecordArray, program

__all__ = [
    "cz",
    "h",
    "lelbow",
    "phase",
    "relbow",
    "rootx",
    "rootx_inv",
    "rooty",
    "rooty_inv",
    "rx",
    "ry",
    "rz",
    "s",
    "s_inv",
    "swap",
    "t",
    "t_inv",
    "x",
    "y",
    "z",
]


class Gate(Protocol):
    """A builder of a gate without parameters."""

    def __call__(
        self, targets: Qubits, *, controls: Qubits = (), zeros: Qubits = (), flag: int = 0
    ) -> RecordArray:
        """Build the gate's records."""
        ...


class AngleGate(Protocol):
    """A builder of a gate with an angle in degrees."""

    def __call__(
        self,
        angle_degrees: float,
        targets: Qubits,
        *,
        controls: Qubits = (),
        zeros: Qubits = (),
        flag: int = 0,
    ) -> RecordArray:
        """Build the gate's records."""
        ...


# These multiply terms by a phase, and the engine takes the lowest control as the target
# when there is none: z((), controls=[0, 1]) and z(0, controls=1) are the same gate.
_TARGETS_OPTIONAL = frozenset(
    {Opcode.PHASE, Opcode.Z, Opcode.S, Opcode.S_INV, Opcode.T, Opcode.T_INV}
)


def _controlled(own: Record, targets: Qubits, controls: Qubits, zeros: Qubits) -> RecordArray:
    ones, negated = control_lists(controls, zeros)
    optional = own.opcode in _TARGETS_OPTIONAL and bool(ones or negated)
    return spread(own, qubit_list(targets, "target", required=not optional), ones, negated)


def _gate(name: str, opcode: Opcode, summary: str) -> Gate:
    def build(
        targets: Qubits, *, controls: Qubits = (), zeros: Qubits = (), flag: int = 0
    ) -> RecordArray:
        return _controlled(Record(opcode, cond_flag=flag), targets, controls, zeros)

    _document(build, name, summary)
    return build


def _angle_gate(name: str, opcode: Opcode, summary: str) -> AngleGate:
    def build(
        angle_degrees: float,
        targets: Qubits,
        *,
        controls: Qubits = (),
        zeros: Qubits = (),
        flag: int = 0,
    ) -> RecordArray:
        own = Record(opcode, angle=float(angle_degrees), cond_flag=flag)
        return _controlled(own, targets, controls, zeros)

    _document(build, name, summary, takes_angle=True)
    return build


_ANGLE_DOC = """
        angle_degrees: The angle, in degrees."""


def _document(
    build: Callable[..., RecordArray], name: str, summary: str, *, takes_angle: bool = False
) -> None:
    build.__name__ = build.__qualname__ = name
    build.__doc__ = f"""{summary}

    Args:{_ANGLE_DOC if takes_angle else ""}
        targets: The qubits that the gate acts on, each on its own.
        controls: Qubits that must be 1 for the gate to act.
        zeros: Qubits that must be 0 for the gate to act.
        flag: The classical condition: a read flag that must be 1, or 0 when the number
            is negative; 0 always holds and -1 never.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: extension records first, the gate last.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If a qubit is negative, given twice, or both a control and a
            zero-control, or if the gate lacks a qubit that it needs.
    """


h = _gate("h", Opcode.H, "Hadamard on each target.")
x = _gate("x", Opcode.X, "NOT on each target.")
y = _gate("y", Opcode.Y, "Pauli Y on each target.")
z = _gate(
    "z",
    Opcode.Z,
    "Pauli Z on each target; targets may be empty when there are controls.\n\n"
    "    With controls it is exact on dense and sparse filters. A Clifford filter leaves out the\n"
    "    sign of a controlled Z: write `cz` there.",
)
s = _gate("s", Opcode.S, "Phase of 90 degrees on each target, or on the controls alone.")
s_inv = _gate("s_inv", Opcode.S_INV, "Phase of -90 degrees, the inverse of `s`.")
t = _gate("t", Opcode.T, "Phase of 45 degrees on each target, or on the controls alone.")
t_inv = _gate("t_inv", Opcode.T_INV, "Phase of -45 degrees, the inverse of `t`.")
rootx = _gate("rootx", Opcode.ROOTX, "Square root of X on each target.")
rootx_inv = _gate("rootx_inv", Opcode.ROOTX_INV, "Inverse of `rootx`.")
rooty = _gate("rooty", Opcode.ROOTY, "Square root of Y on each target.")
rooty_inv = _gate("rooty_inv", Opcode.ROOTY_INV, "Inverse of `rooty`.")
lelbow = _gate("lelbow", Opcode.LELBOW, "Left elbow: AND of the controls into a target that is 0.")
relbow = _gate("relbow", Opcode.RELBOW, "Right elbow: uncompute what `lelbow` computed.")

phase = _angle_gate(
    "phase",
    Opcode.PHASE,
    "Multiply the terms in which a target and all controls hold by a phase, in degrees.\n\n"
    "    Targets may be empty when there are controls.",
)
rx = _angle_gate("rx", Opcode.RX, "Rotate each target about X by an angle in degrees.")
ry = _angle_gate("ry", Opcode.RY, "Rotate each target about Y by an angle in degrees.")
rz = _angle_gate("rz", Opcode.RZ, "Rotate each target about Z by an angle in degrees.")


def swap(
    a: int, b: int, *, controls: Qubits = (), zeros: Qubits = (), flag: int = 0
) -> RecordArray:
    """Exchange two qubits.

    Args:
        a: One qubit.
        b: The other qubit.
        controls: Qubits that must be 1 for the gate to act.
        zeros: Qubits that must be 0 for the gate to act.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`. Two qubits in different 64-qubit words need
        an extension record, which stands first.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If `a` equals `b`, a qubit is negative, or a control is given twice
            or is a zero-control as well.
    """
    if a == b:
        raise ValueError(f"swap needs two different qubits, not {a} twice")
    return _controlled(Record(Opcode.SWAP, cond_flag=flag), (a, b), controls, zeros)


def cz(a: int, b: int, *, flag: int = 0) -> RecordArray:
    """Controlled Z between two qubits, in gates that a Clifford filter carries out exactly.

    They are S on both qubits, a CNOT, inverse S on `b` and the CNOT again, and they give the
    controlled Z without a phase of their own. A bit filter refuses the first of them. On dense
    and sparse filters `z(b, controls=a)` is the same gate in one record.

    Args:
        a: One qubit.
        b: The other qubit; the gate is the same with both exchanged.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: four, and an extension record first when the qubits
        lie in different 64-qubit words.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If `a` equals `b`, or a qubit is negative.
    """
    if a == b:
        raise ValueError(f"cz needs two different qubits, not {a} twice")
    phases = s((a, b), flag=flag)
    cnot = x(b, controls=a, flag=flag)
    return program(phases, cnot, s_inv(b, flag=flag), cnot)
