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

from importlib.metadata import version as _installed_version
from typing import Final

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
from nimbrel.records import QPU_OP, RECORD_FORMAT, RecordArray, program, record
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
    "Opcode",
    "Qubits",
    "RecordArray",
    "RemoteSimulator",
    "SimParams",
    "Simulator",
    "SparseSimulator",
    "__version__",
    "aligned_buffer",
    "clear",
    "close_event",
    "cz",
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
    "seed",
    "swap",
    "t",
    "t_inv",
    "write",
    "x",
    "y",
    "z",
]

__version__: Final = _installed_version("nimbrel")
"""The version of the installed package, as `pip` shows it."""
