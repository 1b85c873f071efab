"""Qiskit circuits on the engine. Needs the extra `qiskit`: `pip install nimbrel[qiskit]`."""

try:
    import qiskit as _qiskit  # noqa: F401
except ImportError as error:
    raise ImportError("nimbrel.qiskit needs Qiskit: pip install nimbrel[qiskit]") from error

from nimbrel.qiskit.circuit_programs import CircuitProgram, from_circuit
from nimbrel.qiskit.errors import ConversionError

__all__ = ["CircuitProgram", "ConversionError", "from_circuit"]
