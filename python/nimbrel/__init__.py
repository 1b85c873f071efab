"""Companion of the engine: instruction records, builders and a simulator.

The engine itself is the extension module `_lib_nb_sim`, which takes programs as NumPy
arrays of 88-byte records. This package writes those records and runs them:

    from nimbrel import Simulator, read, reset, x

    with Simulator("StreamBitQPU") as sim:
        sim.run(reset(100), x([3, 70]), read(range(100), 2))
        print(bin(sim.flags(2, 100)))

Qubit 0 is the least significant, angles are in degrees. A front end may do without the
package, which adds nothing to the engine but that a forked process is seeded anew (`seed`).
"""

from importlib.metadata import version as _installed_version
from typing import Final

from nimbrel.amplitudes import aligned_buffer
from nimbrel.classical import clear, flag_nand, free, read, reset, write
from nimbrel.control import close_event, jump_fwd, label, open_event
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
from nimbrel.layout import Qubits
from nimbrel.opcodes import TAG, Opcode
from nimbrel.paulis import pcp, ppm, ppr
from nimbrel.records import QPU_OP, RECORD_FORMAT, RecordArray, program, record
from nimbrel.remote import fetch_request
from nimbrel.seeding import seed
from nimbrel.simulator import Event, Simulator

__all__ = [
    "QPU_OP",
    "RECORD_FORMAT",
    "TAG",
    "Event",
    "Opcode",
    "Qubits",
    "RecordArray",
    "SimParams",
    "Simulator",
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
"""The installed release, as `pip` shows it."""
