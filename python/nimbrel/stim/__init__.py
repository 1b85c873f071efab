"""Stim circuits on the engine. Needs the extra "stim": `pip install nimbrel[stim]`.

    import stim
    from nimbrel.stim import from_circuit, sample

    circuit = stim.Circuit.generated("repetition_code:memory", rounds=3, distance=3,
                                     before_measure_flip_probability=0.01)
    samples = sample(circuit, 1000, seed=1)

`from_circuit` translates a circuit to a program; `sample` runs it with its noise.
"""

try:
    import stim as _stim  # noqa: F401
except ModuleNotFoundError as error:
    raise ImportError("nimbrel.stim needs Stim: pip install nimbrel[stim]") from error

from nimbrel.stim.sampling import StimSamples, sample
from nimbrel.stim.stim_program import StimProgram, from_circuit
from nimbrel.stim.tableaus import (
    from_pauli_strings,
    from_tableau,
    observable_of,
    pauli_strings,
    qubits_of,
    to_tableau,
)

__all__ = [
    "StimProgram",
    "StimSamples",
    "from_circuit",
    "from_pauli_strings",
    "from_tableau",
    "observable_of",
    "pauli_strings",
    "qubits_of",
    "sample",
    "to_tableau",
]
