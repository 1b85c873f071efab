"""The instructions that a circuit may have without transpilation, as Qiskit's `Target`."""

from __future__ import annotations

from typing import Any, Final

from qiskit.circuit import (
    BoxOp,
    BreakLoopOp,
    ContinueLoopOp,
    Delay,
    ForLoopOp,
    IfElseOp,
    Measure,
    Parameter,
    Reset,
    Store,
    SwitchCaseOp,
    WhileLoopOp,
)
from qiskit.circuit.library import (
    DiagonalGate,
    Initialize,
    MCPhaseGate,
    MCXGate,
    PauliEvolutionGate,
    PauliGate,
    PauliProductMeasurement,
    PauliProductRotationGate,
    UCRXGate,
    UCRYGate,
    UCRZGate,
    UnitaryGate,
    get_standard_gate_name_mapping,
)
from qiskit.transpiler import Target

from nimbrel.qiskit.standard_gates import STANDARD_GATES

_OF_ANY_WIDTH: Final[dict[str, Any]] = {
    **{"mcx": MCXGate, "mcphase": MCPhaseGate, "unitary": UnitaryGate, "diagonal": DiagonalGate},
    **{"ucrx": UCRXGate, "ucry": UCRYGate, "ucrz": UCRZGate, "initialize": Initialize},
    **{"pauli": PauliGate, "PauliEvolution": PauliEvolutionGate},
    "pauli_product_rotation": PauliProductRotationGate,
    "pauli_product_measurement": PauliProductMeasurement,
    **{"if_else": IfElseOp, "switch_case": SwitchCaseOp, "for_loop": ForLoopOp},
    **{"while_loop": WhileLoopOp, "break_loop": BreakLoopOp, "continue_loop": ContinueLoopOp},
    **{"box": BoxOp, "store": Store},
}


def make_target() -> Target:
    """A target of any number of qubits, each instruction on any of them and without error."""
    target = Target(description="the engine's filters", num_qubits=None)
    gates = get_standard_gate_name_mapping()
    for name in STANDARD_GATES:
        if name in gates:
            target.add_instruction(gates[name], name=name)
    for instruction in (Measure(), Reset(), Delay(Parameter("t"))):
        target.add_instruction(instruction)
    for name, kind in _OF_ANY_WIDTH.items():
        target.add_instruction(kind, name=name)
    return target
