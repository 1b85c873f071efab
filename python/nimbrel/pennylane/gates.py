"""The rows of PennyLane's gates: those that are exactly one record or a few.

A maker takes a gate's angles in degrees and the bits of its wires and returns its rows. The angles
of all rows are affine functions of the gate's angles, which the adjoint derivative relies on.

PennyLane's documentation defines the matrices: https://docs.pennylane.ai/en/stable/introduction/
operations.html. Gates without a maker reach this module decomposed.
"""

from collections.abc import Callable, Sequence
from typing import Any, Final, TypeAlias

from nimbrel.opcodes import Opcode
from nimbrel.pennylane._framework import qml
from nimbrel.pennylane.rows import Row

Angles: TypeAlias = Sequence[float]
Bits: TypeAlias = Sequence[int]
Maker: TypeAlias = Callable[[Angles, Bits], list[Row]]

_X, _PHASE, _PPR = int(Opcode.X), int(Opcode.PHASE), int(Opcode.PPR)
_RX, _RY, _RZ, _SWAP = int(Opcode.RX), int(Opcode.RY), int(Opcode.RZ), int(Opcode.SWAP)


def _fixed(opcode: Opcode) -> Maker:
    number = int(opcode)
    return lambda _, bits: [Row(number, bits[0])]


def _angled(opcode: Opcode) -> Maker:
    number = int(opcode)
    return lambda angles, bits: [Row(number, bits[0], angle=angles[0])]


def _nothing(_: Angles, __: Bits) -> list[Row]:
    return []


def _rot(angles: Angles, bits: Bits) -> list[Row]:
    first, middle, last = angles
    bit = bits[0]
    return [Row(_RZ, bit, angle=first), Row(_RY, bit, angle=middle), Row(_RZ, bit, angle=last)]


def _u2(angles: Angles, bits: Bits) -> list[Row]:
    return _u3((90.0, *angles), bits)


def _u3(angles: Angles, bits: Bits) -> list[Row]:
    turn, last, first = angles
    bit = bits[0]
    return [
        Row(_PHASE, bit, angle=first),
        Row(_RY, bit, angle=turn),
        Row(_PHASE, bit, angle=last),
    ]


def _swap(_: Angles, bits: Bits) -> list[Row]:
    return [Row(_SWAP, bits[0] | bits[1])]


def _pswap(angles: Angles, bits: Bits) -> list[Row]:
    # Swap, then the phase on the terms whose two bits differ.
    first, second = bits
    return [
        Row(_SWAP, first | second),
        Row(_PHASE, first, angle=angles[0]),
        Row(_PHASE, second, angle=angles[0]),
        Row(_PHASE, first, second, angle=-2 * angles[0]),
    ]


def _xx(angles: Angles, bits: Bits) -> list[Row]:
    return [Row(_PPR, bits[0] | bits[1], angle=angles[0] / 2)]


def _yy(angles: Angles, bits: Bits) -> list[Row]:
    both = bits[0] | bits[1]
    return [Row(_PPR, both, both, angle=angles[0] / 2)]


def _zz(angles: Angles, bits: Bits) -> list[Row]:
    return [Row(_PPR, 0, sum(bits), angle=angles[0] / 2)]


def _xy(angles: Angles, bits: Bits) -> list[Row]:
    # exp(i angle (XX + YY) / 4); the two products commute.
    both = bits[0] | bits[1]
    return [
        Row(_PPR, both, angle=-angles[0] / 4),
        Row(_PPR, both, both, angle=-angles[0] / 4),
    ]


def _iswap(_: Angles, bits: Bits) -> list[Row]:
    return _xy((180.0,), bits)


def _siswap(_: Angles, bits: Bits) -> list[Row]:
    return _xy((90.0,), bits)


def _phase_where(first_one: bool, second_one: bool) -> Maker:
    def make(angles: Angles, bits: Bits) -> list[Row]:
        first, second = bits
        zeros = (0 if first_one else first) | (0 if second_one else second)
        return [Row(_PHASE, second, first, zeros, angles[0])]

    return make


def _excitation(outside: float) -> Maker:
    # A rotation between 01 and 10; `outside` times half the angle is the phase of 00 and 11.
    def make(angles: Angles, bits: Bits) -> list[Row]:
        first, second = bits
        fold = Row(_X, second, first)
        rows = [fold, Row(_RY, first, second, angle=angles[0])]
        if outside:
            rows.append(Row(_PHASE, second, 0, second, outside * angles[0] / 2))
        return [*rows, fold]

    return make


def _double_excitation(outside: float) -> Maker:
    # A rotation between 0011 and 1100, which the X records make neighbours; `outside` times half
    # the angle is the phase of all other terms.
    def make(angles: Angles, bits: Bits) -> list[Row]:
        first, second, third, fourth = bits
        others = second | third | fourth
        fold = Row(_X, others, first)
        rows = [fold, Row(_RY, first, others, second, angles[0])]
        if outside:
            rows.append(Row(_PHASE, 0, others, second, -outside * angles[0] / 2))
            rows += _global_phase((-outside * angles[0] / 2,), bits)
        return [*rows, fold]

    return make


def _global_phase(angles: Angles, _: Bits) -> list[Row]:
    return [Row(_PHASE, 0, angle=-angles[0])]


def _names(**makers: Maker) -> dict[Any, Maker]:
    return {getattr(qml, name): maker for name, maker in makers.items()}


MAKERS: Final[dict[Any, Maker]] = _names(
    PauliX=_fixed(Opcode.X),
    PauliY=_fixed(Opcode.Y),
    PauliZ=_fixed(Opcode.Z),
    Hadamard=_fixed(Opcode.H),
    S=_fixed(Opcode.S),
    T=_fixed(Opcode.T),
    SX=_fixed(Opcode.ROOTX),
    PhaseShift=_angled(Opcode.PHASE),
    U1=_angled(Opcode.PHASE),
    RX=_angled(Opcode.RX),
    RY=_angled(Opcode.RY),
    RZ=_angled(Opcode.RZ),
    Rot=_rot,
    U2=_u2,
    U3=_u3,
    SWAP=_swap,
    PSWAP=_pswap,
    ISWAP=_iswap,
    SISWAP=_siswap,
    IsingXX=_xx,
    IsingYY=_yy,
    IsingZZ=_zz,
    IsingXY=_xy,
    MultiRZ=_zz,
    CPhaseShift00=_phase_where(False, False),
    CPhaseShift01=_phase_where(False, True),
    CPhaseShift10=_phase_where(True, False),
    SingleExcitation=_excitation(0.0),
    SingleExcitationPlus=_excitation(1.0),
    SingleExcitationMinus=_excitation(-1.0),
    DoubleExcitation=_double_excitation(0.0),
    DoubleExcitationPlus=_double_excitation(1.0),
    DoubleExcitationMinus=_double_excitation(-1.0),
    GlobalPhase=_global_phase,
    Identity=_nothing,
    Barrier=_nothing,
    Snapshot=_nothing,
)
"""The makers of all gates whose parameters are angles in radians, by PennyLane's class."""


def pauli_rotation(angle: float, word: str, bits: Bits) -> list[Row]:
    """The rows of exp(-i angle P / 2), as a global phase if P is the identity.

    Args:
        angle: The angle in degrees.
        word: A letter I, X, Y or Z for each wire.
        bits: The bits of the wires.
    """
    xs = sum(bit for bit, letter in zip(bits, word, strict=True) if letter in "XY")
    zs = sum(bit for bit, letter in zip(bits, word, strict=True) if letter in "YZ")
    if not xs | zs:
        return _global_phase((angle / 2,), bits)
    return [Row(_PPR, xs, zs, angle=angle / 2)]
