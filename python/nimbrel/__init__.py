"""Companion of the engine: instruction records, builders and simulators.

The engine is the extension module `_lib_nb_sim`, which takes programs as NumPy arrays of 88-byte
records. This package builds those records and runs them:

    from nimbrel import Simulator, read, reset, x

    with Simulator("StreamBitQPU") as sim:
        sim.run(reset(100), x([3, 70]), read(range(100), 2))
        print(bin(sim.flags(2, 100)))

Qubit 0 is the least significant; angles are in degrees. A front end can use the engine without
this package. The package adds one behaviour to the engine: a new seed for a forked process
(`seed`). `nimbrel.service`, which is not imported here, runs programs for "StreamConnect" filters
of other processes.
"""

from typing import TYPE_CHECKING, Any

from nimbrel.amplitudes import aligned_buffer
from nimbrel.bit import BitSimulator
from nimbrel.classical import clear, flag_nand, free, read, reset, write
from nimbrel.clifford import CliffordSimulator
from nimbrel.control import close_event, jump_fwd, label, open_event
from nimbrel.dense import DenseSimulator
from nimbrel.fetch_requests import fetch_request
from nimbrel.filter_handle import SimParams
from nimbrel.gates import (
    cz,
    h,
    lelbow,
    phase,
    relbow,
    rootx,
    rootx_inv,
    rooty,
    rooty_inv,
    rx,
    ry,
    rz,
    s,
    s_inv,
    swap,
    t,
    t_inv,
    x,
    y,
    z,
)
from nimbrel.masks import Qubits
from nimbrel.opcodes import TAG, Opcode
from nimbrel.operations import Event
from nimbrel.paulis import pcp, ppm, ppr
from nimbrel.records import QPU_OP, RECORD_FORMAT, Program, RecordArray, program, record
from nimbrel.remote import RemoteSimulator
from nimbrel.seeding import seed
from nimbrel.simulator import Simulator
from nimbrel.sparse import SparseSimulator

__all__ = [
    "QPU_OP",
    "RECORD_FORMAT",
    "TAG",
    "BitSimulator",
    "CliffordSimulator",
    "DenseSimulator",
    "Event",
    "FilterChoice",
    "Opcode",
    "PointError",
    "Program",
    "Qubits",
    "RecordArray",
    "RemoteSimulator",
    "Samples",
    "SimParams",
    "Simulator",
    "SparseSimulator",
    "WorkerLostError",
    "__version__",
    "aligned_buffer",
    "choose_filter",
    "clear",
    "close_event",
    "cz",
    "expectation",
    "fetch_request",
    "flag_nand",
    "free",
    "h",
    "jump_fwd",
    "label",
    "lelbow",
    "open_event",
    "pcp",
    "phase",
    "ppm",
    "ppr",
    "program",
    "read",
    "record",
    "relbow",
    "reset",
    "rootx",
    "rootx_inv",
    "rooty",
    "rooty_inv",
    "rx",
    "ry",
    "rz",
    "s",
    "s_inv",
    "sample",
    "seed",
    "swap",
    "sweep",
    "t",
    "t_inv",
    "write",
    "x",
    "y",
    "z",
]

if TYPE_CHECKING:
    from nimbrel.running.expectation_values import expectation
    from nimbrel.running.filter_choice import FilterChoice, choose_filter
    from nimbrel.running.run_errors import PointError, WorkerLostError
    from nimbrel.running.samples import Samples
    from nimbrel.running.shots import sample
    from nimbrel.running.sweeps import sweep

    __version__: str
    """The version of the installed package, as `pip` shows it."""
else:
    # Found when they are first used: they take as long to import as all others together.
    _FOUND_LATER = {
        "FilterChoice": "nimbrel.running.filter_choice",
        "PointError": "nimbrel.running.run_errors",
        "Samples": "nimbrel.running.samples",
        "WorkerLostError": "nimbrel.running.run_errors",
        "choose_filter": "nimbrel.running.filter_choice",
        "expectation": "nimbrel.running.expectation_values",
        "sample": "nimbrel.running.shots",
        "sweep": "nimbrel.running.sweeps",
    }

    # Hidden from type checkers, which would accept every name otherwise.
    def __getattr__(name: str) -> Any:
        """Find the names that are not imported with the package."""
        if name == "__version__":
            from importlib.metadata import version

            globals()[name] = version("nimbrel")
        elif name in _FOUND_LATER:
            from importlib import import_module

            globals()[name] = getattr(import_module(_FOUND_LATER[name]), name)
        else:
            raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
        return globals()[name]

    def __dir__() -> list[str]:
        """The names of the package, also those that are not imported yet."""
        return sorted({*globals(), *__all__})
