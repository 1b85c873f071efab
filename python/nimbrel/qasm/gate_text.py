"""Gates as statements of OpenQASM 3."""

from __future__ import annotations

import math
from fractions import Fraction
from typing import Final

from nimbrel.opcodes import Opcode
from nimbrel.qasm.record_view import Operation, UnwritableError

_PLAIN: Final = {
    **{Opcode.X: "x", Opcode.LELBOW: "x", Opcode.RELBOW: "x", Opcode.Y: "y", Opcode.Z: "z"},
    **{Opcode.H: "h", Opcode.S: "s", Opcode.S_INV: "sdg", Opcode.T: "t", Opcode.T_INV: "tdg"},
    **{Opcode.ROOTX: "sx", Opcode.ROOTX_INV: "inv @ sx", Opcode.SWAP: "swap"},
}
_TURNING: Final = {Opcode.PHASE: "p", Opcode.RX: "rx", Opcode.RY: "ry", Opcode.RZ: "rz"}
_ROOT_OF_Y: Final = {Opcode.ROOTY: 90.0, Opcode.ROOTY_INV: -90.0}
_WITH_CONTROLS: Final = {
    **{("x", 1): "cx", ("x", 2): "ccx", ("y", 1): "cy", ("z", 1): "cz", ("h", 1): "ch"},
    **{("p", 1): "cp", ("rx", 1): "crx", ("ry", 1): "cry", ("rz", 1): "crz"},
    ("swap", 1): "cswap",
}
_TARGETS_OPTIONAL: Final = frozenset(
    {Opcode.PHASE, Opcode.Z, Opcode.S, Opcode.S_INV, Opcode.T, Opcode.T_INV}
)


def gate_lines(operation: Operation) -> list[str]:
    """The statements of a gate.

    Raises:
        UnwritableError: If the record has no form in OpenQASM 3.
    """
    opcode, targets, controls = operation.opcode, operation.targets, operation.controls
    if opcode == Opcode.Z_NOP:
        return []
    if opcode not in _PLAIN and opcode not in _TURNING and opcode not in _ROOT_OF_Y:
        raise UnwritableError(f"{operation.name} has no form in OpenQASM 3")
    if not targets and opcode in _TARGETS_OPTIONAL and controls:
        lowest = min([*controls, *operation.zeros])
        if lowest in controls:
            targets, controls = [lowest], [qubit for qubit in controls if qubit != lowest]
    if not targets or (opcode == Opcode.SWAP and len(targets) != 2):
        raise UnwritableError(
            f"{operation.name} on {len(targets)} qubits has no form in OpenQASM 3"
        )
    shared = {*targets} & {*controls, *operation.zeros}
    if shared:
        raise UnwritableError(f"{operation.name} has qubit {min(shared)} as target and control")
    if opcode in _ROOT_OF_Y:
        return _roots_of_y(operation, _ROOT_OF_Y[opcode])
    name = _PLAIN.get(opcode) or f"{_TURNING[opcode]}({angle_text(operation.angle)})"
    groups = [targets] if opcode == Opcode.SWAP else [[target] for target in targets]
    return [call(name, group, controls, operation.zeros) for group in groups]


def _roots_of_y(operation: Operation, degrees: float) -> list[str]:
    # A root of Y is a rotation times a phase, which matters as soon as there are controls.
    lines: list[str] = []
    for target in operation.targets:
        if operation.controls or operation.zeros:
            phase = f"gphase({angle_text(degrees / 2)})"
            lines.append(call(phase, [], operation.controls, operation.zeros))
        turn = f"ry({angle_text(degrees)})"
        lines.append(call(turn, [target], operation.controls, operation.zeros))
    return lines


def call(name: str, targets: list[int], controls: list[int], zeros: list[int]) -> str:
    """One call of a gate."""
    base, parenthesis, angle = name.partition("(")
    short = _WITH_CONTROLS.get((base, len(controls))) if not zeros else None
    if short is not None:
        name, modifiers = short + parenthesis + angle, ""
    else:
        modifiers = _modifier("ctrl", len(controls)) + _modifier("negctrl", len(zeros))
    operands = ", ".join(f"q[{qubit}]" for qubit in (*controls, *zeros, *targets))
    return f"{modifiers}{name} {operands};"


def _modifier(name: str, count: int) -> str:
    if count == 0:
        return ""
    return f"{name} @ " if count == 1 else f"{name}({count}) @ "


def angle_text(degrees: float) -> str:
    """An angle in radians, as a fraction of pi if it is a simple one.

    Raises:
        UnwritableError: If it is not finite.
    """
    if not math.isfinite(degrees):
        raise UnwritableError(f"the angle {degrees} has no form in OpenQASM 3")
    fraction = Fraction(degrees).limit_denominator(64) / 180
    if degrees == 0.0 or (float(fraction * 180) == degrees and fraction.denominator <= 64):
        return _fraction_text(fraction)
    return repr(_radians(degrees))


def _fraction_text(fraction: Fraction) -> str:
    if fraction == 0:
        return "0"
    sign = "-" if fraction < 0 else ""
    factor = "" if abs(fraction.numerator) == 1 else f"{abs(fraction.numerator)}*"
    divisor = "" if fraction.denominator == 1 else f"/{fraction.denominator}"
    return f"{sign}{factor}pi{divisor}"


def _radians(degrees: float) -> float:
    # A neighbour of the rounded value may convert back to just this number of degrees.
    radians = math.radians(degrees)
    for candidate in (radians, math.nextafter(radians, math.inf), math.nextafter(radians, 0)):
        if math.degrees(candidate) == degrees:
            return candidate
    return radians


def product_lines(operation: Operation) -> tuple[int, list[str], list[str]]:
    """How to gather a Pauli product on one qubit.

    Returns:
        The qubit, the statements before and those after.

    Raises:
        UnwritableError: If the product has no qubit.
    """
    xs, zs = {*operation.targets}, {*operation.controls}
    qubits = sorted(xs | zs)
    if not qubits:
        raise UnwritableError(f"{operation.name} without a qubit has no form in OpenQASM 3")
    before: list[str] = []
    after: list[str] = []
    for qubit in qubits:
        if qubit in xs:
            before += [f"sdg q[{qubit}];"] * (qubit in zs) + [f"h q[{qubit}];"]
            after += [f"h q[{qubit}];"] + [f"s q[{qubit}];"] * (qubit in zs)
    target = qubits[0]
    gathered = [f"cx q[{qubit}], q[{target}];" for qubit in qubits[1:]]
    return target, [*before, *gathered], [*reversed(gathered), *after]


def ppr_lines(operation: Operation) -> list[str]:
    """The statements of a Pauli rotation.

    Raises:
        UnwritableError: If it has no qubit, or a control is one of its qubits.
    """
    target, before, after = product_lines(operation)
    controls, zeros = operation.product_controls, operation.zeros
    shared = {*operation.targets, *operation.controls} & {*controls, *zeros}
    if shared:
        raise UnwritableError(f"{operation.name} has qubit {min(shared)} as target and control")
    turn = f"rz({angle_text(2 * operation.angle)})"
    return [*before, call(turn, [target], controls, zeros), *after]
