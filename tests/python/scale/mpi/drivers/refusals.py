"""Run under mpirun on two ranks: programs that are refused, each by name, before anything runs."""

import nimbrel
import nimbrel.mpi
import numpy as np
import pytest
from mpi4py import MPI
from nimbrel.records import QPU_OP

from models import opcodes
from models.wire import Record, tagged
from support.dense import to_array

QUBITS = 3
FIRST = nimbrel.program(nimbrel.reset(QUBITS), nimbrel.h(0))
CASES = (
    (tagged(opcodes.EXTEND, target_mask=1), "record 1 (extend)"),
    (tagged(opcodes.JUMP_BACK), "record 1 (jump_back)"),
    (tagged(opcodes.CALLBACK), "record 1 (callback)"),
    (tagged(0x77), "record 1 (0x4e6d627200000077)"),
    (tagged(opcodes.LABEL, target_mask=1, cond_mask=1), "record 1 (label)"),
    (tagged(opcodes.PPR, 0b11, 0, 30.0, 0, 0b1), "record 1 (ppr)"),
    (tagged(opcodes.PPR, 0b111, 0, 30.0), "record 1 (ppr)"),
    (tagged(opcodes.PPM, 0b111), "record 1 (ppm)"),
    (tagged(opcodes.PHASE, 0b11, 0, 30.0, 0, 0, 0b1), "record 1 (phase)"),
    (tagged(opcodes.X, 0b1000), "record 1: qubit 3"),
    (tagged(opcodes.RESET, 1), "record 1 (reset)"),
)

WIDE_BATCH = (
    tagged(opcodes.PCP, 0b11, angle=2000.0),
    tagged(opcodes.PCP, 0b100, angle=2001.0),
)
"""Each product fits a part, and their product does not."""


def records(record: Record) -> nimbrel.RecordArray:
    return to_array([tagged(opcodes.H, 0b1), record]).view(QPU_OP).reshape(-1)


def main() -> None:
    with nimbrel.mpi.Simulator() as sim:
        with pytest.raises(RuntimeError, match="no register yet"):
            sim.run(nimbrel.h(0))
        sim.run(FIRST)
        before = sim.state()
        for record, text in CASES:
            with pytest.raises(ValueError) as raised:  # noqa: PT011 - the text is compared below
                sim.run(records(record))
            assert text in str(raised.value)
            assert np.array_equal(sim.state(), before)
        with pytest.raises(ValueError, match=r"record 1 \(pcp\) has letters X and Y on more"):
            sim.run(to_array(WIDE_BATCH).view(QPU_OP).reshape(-1))
        sim.run(records(WIDE_BATCH[0]))
        with pytest.raises(ValueError, match=r"record 1 \(pcp\) has letters X and Y on more"):
            sim.run(records(WIDE_BATCH[1]))
        sim.run(nimbrel.reset(QUBITS + 2), nimbrel.ppr(30, range(QUBITS), []))
        sim.run(FIRST)
        with pytest.raises(ValueError, match="lies outside the register"):
            sim.probabilities(QUBITS)
    with nimbrel.mpi.Simulator() as sim:
        sim.run(FIRST)
        with pytest.raises(ValueError, match="one-dimensional arrays"):
            sim.run(np.zeros((1, 1), dtype=QPU_OP))
        sim.run()
    with nimbrel.mpi.Simulator(check_qubits=False) as sim:
        sim.run(FIRST)
        with pytest.raises(ValueError, match=r"record 1 \(ppm\) has a letter Y outside"):
            sim.run(records(tagged(opcodes.PPM, 0b1000, 0b1001)))
    with pytest.raises(ValueError, match="closed"):
        sim.run(FIRST)
    if MPI.COMM_WORLD.rank == 0:
        print("all refused", flush=True)


main()
