"""Builders of the gates.

Every builder returns a one-dimensional `QPU_OP` array: extension records first, the main record of
the gate last. Qubits are an int or an iterable of ints; qubit 0 is the least significant. A gate
with several targets acts on each of them. These keyword arguments are common to all gates:

    controls   controls: qubits that must be 1 for the gate to act
    zeros      negated controls: qubits that must be 0 for the gate to act. A Clifford filter
               would treat them as controls, so `Simulator.run` refuses them there
    flag       the classical condition: the read flag that must be 1 for the gate to act; a
               negative number means that it must be 0; 0, the default, always holds, -1 never

All builders raise `ValueError` for a negative qubit, a qubit given twice, a qubit in both
`controls` and `zeros`, and a gate without the qubits that it needs. They raise `TypeError` for a
qubit or a flag that is not an integer.

docs/records.md gives the matrix of each gate. The rotations about X, Y and Z are those of Nielsen
and Chuang, "Quantum Computation and Quantum Information", section 4.2,
https://doi.org/10.1017/CBO9780511976667: exp(-i angle P / 2) for a rotation about P.
"""

from collections.abc import Callable
from typing import Protocol, cast

from nimbrel.frequent_gates import (
    ALWAYS,
    NO_QUBITS,
    FrequentAngleGates,
    FrequentGates,
    put_angle,
)
from nimbrel.gate_arrays import AngleGates, Gates, Swaps, angle_gates, gates, swaps
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

    __name__: str

    def __call__(
        self, targets: Qubits, *, controls: Qubits = (), zeros: Qubits = (), flag: int = 0
    ) -> RecordArray:
        """Build the gate's records."""
        ...

    @property
    def each(self) -> Gates:
        """Build many gates of this kind from arrays, one gate a row."""
        ...


class AngleGate(Protocol):
    """A builder of a gate with an angle in degrees."""

    __name__: str

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

    @property
    def each(self) -> AngleGates:
        """Build many gates of this kind from arrays, one gate a row."""
        ...


# These gates multiply terms by a phase. Without a target, the engine uses the lowest control as the
# target: z((), controls=[0, 1]) and z(0, controls=1) are the same gate.
_TARGETS_OPTIONAL = frozenset(
    {Opcode.PHASE, Opcode.Z, Opcode.S, Opcode.S_INV, Opcode.T, Opcode.T_INV}
)


def _controlled(main: Record, targets: Qubits, controls: Qubits, zeros: Qubits) -> RecordArray:
    plain, negated = control_lists(controls, zeros)
    optional = main.opcode in _TARGETS_OPTIONAL and bool(plain or negated)
    return spread(main, qubit_list(targets, "target", required=not optional), plain, negated)


def _gate(name: str, opcode: Opcode, summary: str) -> Gate:
    # Looking up a prepared record takes a twentieth of the time of `_controlled`. It is the lookup
    # of `FrequentGates`, written out, because a call would double its time. Everything else is left
    # to `_controlled`, also what is wrong, so that the errors are the same.
    def build(
        targets: Qubits,
        *,
        controls: Qubits = NO_QUBITS,
        zeros: Qubits = NO_QUBITS,
        flag: int = ALWAYS,
    ) -> RecordArray:
        if type(targets) is int and flag is ALWAYS:
            try:
                if zeros is NO_QUBITS:
                    if controls is NO_QUBITS:
                        return without_control[targets]()
                    if type(controls) is int:
                        return by_control[controls][targets]()
                elif controls is NO_QUBITS and type(zeros) is int:
                    return by_zero[zeros][targets]()
            except (KeyError, StopIteration):
                return frequent.prepare(targets, controls, zeros)
        return general(targets, controls, zeros, flag)

    def general(targets: Qubits, controls: Qubits, zeros: Qubits, flag: int = 0) -> RecordArray:
        return _controlled(Record(opcode, cond_flag=flag), targets, controls, zeros)

    frequent = FrequentGates(general)
    without_control, by_control = frequent.without_control, frequent.by_control
    by_zero = frequent.by_zero
    _document(build, name, summary)
    _add_arrays(build, gates(opcode, build))
    return cast(Gate, build)


def _angle_gate(name: str, opcode: Opcode, summary: str) -> AngleGate:
    def build(
        angle_degrees: float,
        targets: Qubits,
        *,
        controls: Qubits = NO_QUBITS,
        zeros: Qubits = NO_QUBITS,
        flag: int = ALWAYS,
    ) -> RecordArray:
        if type(targets) is int and flag is ALWAYS:
            try:
                if zeros is NO_QUBITS and controls is NO_QUBITS:
                    record, memory, place = without_control[targets]()
                elif zeros is NO_QUBITS and type(controls) is int:
                    record, memory, place = by_control[controls][targets]()
                elif controls is NO_QUBITS and type(zeros) is int:
                    record, memory, place = by_zero[zeros][targets]()
                else:
                    return general(angle_degrees, targets, controls, zeros)
                put_angle(memory, place, float(angle_degrees))
            except (KeyError, StopIteration):
                return frequent.prepare(angle_degrees, targets, controls, zeros)
            return record
        return general(angle_degrees, targets, controls, zeros, flag)

    def general(
        angle_degrees: float,
        targets: Qubits,
        controls: Qubits,
        zeros: Qubits,
        flag: int = 0,
    ) -> RecordArray:
        main = Record(opcode, angle=float(angle_degrees), cond_flag=flag)
        return _controlled(main, targets, controls, zeros)

    frequent = FrequentAngleGates(general)
    without_control, by_control = frequent.without_control, frequent.by_control
    by_zero = frequent.by_zero
    _document(build, name, summary, takes_angle=True)
    _add_arrays(build, angle_gates(opcode, build))
    return cast(AngleGate, build)


def _add_arrays(build: Callable[..., RecordArray], arrays: Callable[..., RecordArray]) -> None:
    arrays.__name__ = "each"
    arrays.__qualname__ = f"{build.__qualname__}.each"
    build.each = arrays  # type: ignore[attr-defined]


_ANGLE_DOC = """
        angle_degrees: The angle, in degrees."""


def _document(
    build: Callable[..., RecordArray], name: str, summary: str, *, takes_angle: bool = False
) -> None:
    build.__name__ = build.__qualname__ = name
    build.__doc__ = f"""{summary}

    Args:{_ANGLE_DOC if takes_angle else ""}
        targets: The target qubits; the gate acts on each of them.
        controls: Controls: qubits that must be 1 for the gate to act.
        zeros: Negated controls: qubits that must be 0 for the gate to act.
        flag: The classical condition: the read flag that must be 1 for the gate to act; a
            negative number means that it must be 0. 0 always holds, -1 never holds.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: extension records first, the gate last.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If a qubit is negative, given twice, or both a control and a negated
            control, or if the gate lacks a qubit that it needs.
    """


h = _gate("h", Opcode.H, "Hadamard on each target.")
x = _gate("x", Opcode.X, "Pauli X, the NOT gate, on each target.")
y = _gate("y", Opcode.Y, "Pauli Y on each target.")
z = _gate(
    "z",
    Opcode.Z,
    "Pauli Z on each target; targets may be empty if there are controls.\n\n"
    "    A controlled Z is exact on dense and sparse filters. A Clifford filter omits the sign of\n"
    "    a controlled Z: write `cz` there.",
)
s = _gate("s", Opcode.S, "Phase of 90 degrees on each target, or on controls without a target.")
s_inv = _gate("s_inv", Opcode.S_INV, "Phase of -90 degrees, the inverse of `s`.")
t = _gate("t", Opcode.T, "Phase of 45 degrees on each target, or on controls without a target.")
t_inv = _gate("t_inv", Opcode.T_INV, "Phase of -45 degrees, the inverse of `t`.")
rootx = _gate("rootx", Opcode.ROOTX, "Square root of X on each target.")
rootx_inv = _gate("rootx_inv", Opcode.ROOTX_INV, "Inverse of `rootx`.")
rooty = _gate("rooty", Opcode.ROOTY, "Square root of Y on each target.")
rooty_inv = _gate("rooty_inv", Opcode.ROOTY_INV, "Inverse of `rooty`.")
lelbow = _gate(
    "lelbow",
    Opcode.LELBOW,
    "Left elbow: compute the AND of the controls into a target that is 0.\n\n"
    "    The engine applies X with these controls. C. Gidney describes the use of such an AND:\n"
    "    https://doi.org/10.22331/q-2018-06-18-74.",
)
relbow = _gate("relbow", Opcode.RELBOW, "Right elbow: uncompute the AND that `lelbow` computed.")

phase = _angle_gate(
    "phase",
    Opcode.PHASE,
    "Multiply by a phase, in degrees, the terms whose target is 1 and whose controls hold.\n\n"
    "    Targets may be empty if there are controls.",
)
rx = _angle_gate("rx", Opcode.RX, "Rotate each target about X by an angle in degrees.")
ry = _angle_gate("ry", Opcode.RY, "Rotate each target about Y by an angle in degrees.")
rz = _angle_gate("rz", Opcode.RZ, "Rotate each target about Z by an angle in degrees.")


def _swap(
    a: int, b: int, *, controls: Qubits = (), zeros: Qubits = (), flag: int = 0
) -> RecordArray:
    """Exchange two qubits.

    Args:
        a: One qubit.
        b: The other qubit.
        controls: Controls: qubits that must be 1 for the gate to act.
        zeros: Negated controls: qubits that must be 0 for the gate to act.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: extension records first, the gate last. Two qubits in
        different 64-qubit words need an extension record.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If `a` equals `b`, a qubit is negative, or a control is given twice or is a
            negated control too.
    """
    if a == b:
        raise ValueError(f"swap needs two different qubits, not {a} twice")
    return _controlled(Record(Opcode.SWAP, cond_flag=flag), (a, b), controls, zeros)


class SwapGate(Protocol):
    """A builder of a swap."""

    __name__: str

    def __call__(
        self, a: int, b: int, *, controls: Qubits = (), zeros: Qubits = (), flag: int = 0
    ) -> RecordArray:
        """Build the swap's records."""
        ...

    @property
    def each(self) -> Swaps:
        """Build many swaps from arrays, one a row."""
        ...


_swap.__name__ = _swap.__qualname__ = "swap"
_add_arrays(_swap, swaps(Opcode.SWAP, _swap))
swap = cast(SwapGate, _swap)


def cz(a: int, b: int, *, flag: int = 0) -> RecordArray:
    """Controlled Z on two qubits, made of gates that are exact on a Clifford filter.

    CZ = CNOT S_b^-1 CNOT S_a S_b, where the CNOT has control `a` and target `b` and the rightmost
    gate acts first. The product has no global phase. The decomposition follows Barenco et al.,
    https://doi.org/10.1103/PhysRevA.52.3457. A bit filter refuses its first gate. On dense and
    sparse filters `z(b, controls=a)` is the same gate in one record.

    Args:
        a: One qubit.
        b: The other qubit; exchanging both gives the same gate.
        flag: The classical condition.

    Returns:
        Records, shape (n,), dtype `QPU_OP`: four gates, and an extension record before them if
        the qubits are in different 64-qubit words.

    Raises:
        TypeError: If a qubit or `flag` is not an integer.
        ValueError: If `a` equals `b`, or a qubit is negative.
    """
    if a == b:
        raise ValueError(f"cz needs two different qubits, not {a} twice")
    phases = s((a, b), flag=flag)
    cnot = x(b, controls=a, flag=flag)
    return program(phases, cnot, s_inv(b, flag=flag), cnot)
