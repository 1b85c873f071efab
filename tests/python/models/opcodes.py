"""The opcode numbers, each the low 32 bits of an opcode word; the names are those of `nb.Opcode`.

The numbers are written out here a second time, so that a wrong number in the companion fails tests.
"""

from __future__ import annotations

# Gates.
X, Y, PHASE, H, SWAP, LELBOW, RELBOW = 0x05, 0x06, 0x08, 0x09, 0x0C, 0x14, 0x4014
RX, RY, RZ = 0x105, 0x106, 0x107
T, S, Z, T_INV, S_INV = 0x407, 0x807, 0x1007, 0x4407, 0x4807
ROOTX, ROOTY, ROOTX_INV, ROOTY_INV = 0x2005, 0x2006, 0x6005, 0x6006

# Pauli products.
PPR, PPM, PCP = 0x0D, 0x0E, 0x13

# Measurements, writes and the register.
READ, WRITE, CLEAR, FREE, RESET = 0x0A, 0x0B, 0x10000003, 0x10004003, 0x10000001

# Control flow, flags, masks of the next record, and messages.
JUMP_FWD, LABEL, JUMP_BACK = 0x10000216, 0x10000316, 0x10000516
FLAG_NAND, EXTEND, CALLBACK = 0x1000000F, 0x10000010, 0x10000018
FETCH_REQUEST, FETCH_REPLY = 0x10000011, 0x10004011
OPEN_EVENT, OPEN_EVENT_2 = 0x10000112, 0x10000212
CLOSE_EVENT, CLOSE_EVENT_2 = 0x10004112, 0x10004212

OPEN_EVENTS = (OPEN_EVENT, OPEN_EVENT_2)
CLOSE_EVENTS = (CLOSE_EVENT, CLOSE_EVENT_2)

# Every simulating filter accepts these and ignores them.
MARKERS = (
    0x207, 0x10000000, 0x10000002, FETCH_REQUEST, 0x10000012, 0x10000015, 0x10000017, 0x10000412,
    FETCH_REPLY, 0x10004012, 0x10004015, 0x10004412, 0x10008003, 0x1000C003,
)  # fmt: skip
