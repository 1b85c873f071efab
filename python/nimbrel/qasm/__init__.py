"""OpenQASM 2 and 3 programs as records, and records as OpenQASM 3.

    from nimbrel import qasm

    bell = qasm.loads('OPENQASM 3; include "stdgates.inc"; qubit[2] q; h q[0]; cx q[0], q[1];')
    print(bell.num_qubits)
    print(qasm.dumps(bell.program))

Needs the packages of the extra "qasm": `pip install nimbrel[qasm]`.
"""

from nimbrel.qasm.errors import QasmError
from nimbrel.qasm.qasm_program import QasmProgram
from nimbrel.qasm.reading import load, loads
from nimbrel.qasm.writing import dumps

__all__ = ["QasmError", "QasmProgram", "dumps", "load", "loads"]
