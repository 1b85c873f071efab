"""Qiskit circuits on the engine. Needs the extra `qiskit`: `pip install nimbrel[qiskit]`.

    from nimbrel.qiskit import EstimatorV2, NimbrelBackend, SamplerV2, from_circuit

`from_circuit` translates a circuit to a program. `SamplerV2`, `EstimatorV2` and `NimbrelBackend`
translate and run.
"""

try:
    import qiskit as _qiskit  # noqa: F401
except ImportError as error:
    raise ImportError("nimbrel.qiskit needs Qiskit: pip install nimbrel[qiskit]") from error

from nimbrel.qiskit.backend import NimbrelBackend, NimbrelJob
from nimbrel.qiskit.circuit_programs import CircuitProgram, from_circuit
from nimbrel.qiskit.errors import ConversionError
from nimbrel.qiskit.estimator import EstimatorV2
from nimbrel.qiskit.sampler import SamplerV2
from nimbrel.qiskit.states import to_statevector
from nimbrel.translation.back_jumps import BackJump

__all__ = [
    "BackJump",
    "CircuitProgram",
    "ConversionError",
    "EstimatorV2",
    "NimbrelBackend",
    "NimbrelJob",
    "SamplerV2",
    "from_circuit",
    "to_statevector",
]
