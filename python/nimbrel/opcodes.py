"""The opcode numbers of the instruction records.

An opcode has 64 bits. The high half is the tag `TAG`, which marks a record of this engine. The low
half names the operation. In the low half, bit 28 marks an operation that is not a gate. Bit 14
marks the inverse, or the closing record, of the operation whose opcode lacks this bit.
"""

import enum
from typing import Final

TAG: Final = 0x4E6D6272
"""High 32 bits of every opcode: the ASCII characters "Nmbr"."""

_TAGGED: Final = TAG << 32


class Opcode(enum.IntEnum):
    """The opcodes that the engine accepts, 64 bits each, tag included.

    The engine accepts and ignores the members named `MARKER_*`; the front end gives them their
    meaning. Their names end with their low 32 bits in hexadecimal.
    """

    # Gates.
    X = _TAGGED | 0x00000005
    Y = _TAGGED | 0x00000006
    PHASE = _TAGGED | 0x00000008
    H = _TAGGED | 0x00000009
    READ = _TAGGED | 0x0000000A
    WRITE = _TAGGED | 0x0000000B
    SWAP = _TAGGED | 0x0000000C
    PPR = _TAGGED | 0x0000000D
    PPM = _TAGGED | 0x0000000E
    PCP = _TAGGED | 0x00000013
    LELBOW = _TAGGED | 0x00000014
    RX = _TAGGED | 0x00000105
    RY = _TAGGED | 0x00000106
    RZ = _TAGGED | 0x00000107
    Z_NOP = _TAGGED | 0x00000207
    T = _TAGGED | 0x00000407
    S = _TAGGED | 0x00000807
    Z = _TAGGED | 0x00001007
    ROOTX = _TAGGED | 0x00002005
    ROOTY = _TAGGED | 0x00002006
    RELBOW = _TAGGED | 0x00004014
    T_INV = _TAGGED | 0x00004407
    S_INV = _TAGGED | 0x00004807
    ROOTX_INV = _TAGGED | 0x00006005
    ROOTY_INV = _TAGGED | 0x00006006

    # All other operations.
    MARKER_10000000 = _TAGGED | 0x10000000
    RESET = _TAGGED | 0x10000001
    MARKER_10000002 = _TAGGED | 0x10000002
    CLEAR = _TAGGED | 0x10000003
    FLAG_NAND = _TAGGED | 0x1000000F
    EXTEND = _TAGGED | 0x10000010
    FETCH_REQUEST = _TAGGED | 0x10000011
    MARKER_10000012 = _TAGGED | 0x10000012
    MARKER_10000015 = _TAGGED | 0x10000015
    MARKER_10000017 = _TAGGED | 0x10000017
    CALLBACK = _TAGGED | 0x10000018
    OPEN_EVENT = _TAGGED | 0x10000112
    OPEN_EVENT_2 = _TAGGED | 0x10000212
    JUMP_FWD = _TAGGED | 0x10000216
    LABEL = _TAGGED | 0x10000316
    MARKER_10000412 = _TAGGED | 0x10000412
    JUMP_FAMILY = _TAGGED | 0x10000416
    JUMP_BACK = _TAGGED | 0x10000516
    FREE = _TAGGED | 0x10004003
    FETCH_REPLY = _TAGGED | 0x10004011
    MARKER_10004012 = _TAGGED | 0x10004012
    MARKER_10004015 = _TAGGED | 0x10004015
    CLOSE_EVENT = _TAGGED | 0x10004112
    CLOSE_EVENT_2 = _TAGGED | 0x10004212
    MARKER_10004412 = _TAGGED | 0x10004412
    MARKER_10008003 = _TAGGED | 0x10008003
    MARKER_1000C003 = _TAGGED | 0x1000C003
