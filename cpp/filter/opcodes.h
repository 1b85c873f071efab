/// Every opcode number that the simulating filters recognise.
#pragma once

namespace Nimbrel {

/// The ASCII characters "Nmbr" in the high half of every opcode: a record from anywhere else is
/// an unknown opcode, because dispatchers compare the whole 64 bits.
inline constexpr unsigned long opcode_tag = 0x4E6D6272UL << 32;

/// Low byte of all jump opcodes. The record loop takes every opcode with this byte, tag or no tag.
inline constexpr unsigned long jump_family = 0x16;

/// Bit 28 marks a record that is no gate; bit 14 the inverse or the closing half of an operation.
enum Opcode : unsigned long {
    // Gates.
    OP_X = opcode_tag | 0x0005,
    OP_Y = opcode_tag | 0x0006,
    OP_PHASE = opcode_tag | 0x0008,
    OP_HADAMARD = opcode_tag | 0x0009,
    OP_SWAP = opcode_tag | 0x000C,
    OP_PPR = opcode_tag | 0x000D,
    OP_PCP = opcode_tag | 0x0013,
    OP_LELBOW = opcode_tag | 0x0014,
    OP_RELBOW = opcode_tag | 0x4014,
    OP_RX = opcode_tag | 0x0105,
    OP_RY = opcode_tag | 0x0106,
    OP_RZ = opcode_tag | 0x0107,
    OP_Z_NOTHING = opcode_tag | 0x0207,
    OP_T = opcode_tag | 0x0407,
    OP_T_INV = opcode_tag | 0x4407,
    OP_S = opcode_tag | 0x0807,
    OP_S_INV = opcode_tag | 0x4807,
    OP_Z = opcode_tag | 0x1007,
    OP_ROOTX = opcode_tag | 0x2005,
    OP_ROOTX_INV = opcode_tag | 0x6005,
    OP_ROOTY = opcode_tag | 0x2006,
    OP_ROOTY_INV = opcode_tag | 0x6006,

    // Measurement and classical values.
    OP_READ = opcode_tag | 0x000A,
    OP_WRITE = opcode_tag | 0x000B,
    OP_PPM = opcode_tag | 0x000E,
    OP_CLEAR = opcode_tag | 0x10000003,
    OP_FREE = opcode_tag | 0x10004003,
    OP_FLAG_NAND = opcode_tag | 0x1000000F,

    // The register and the shape of the program.
    OP_RESET = opcode_tag | 0x10000001,
    OP_EXTEND = opcode_tag | 0x10000010,
    OP_CALLBACK = opcode_tag | 0x10000018,
    OP_JUMP_FWD = opcode_tag | 0x10000216,
    OP_LABEL = opcode_tag | 0x10000316,
    OP_JUMP_NOTHING = opcode_tag | 0x10000416,
    OP_JUMP_BACK = opcode_tag | 0x10000516,

    // Events, in two kinds that nothing here tells apart.
    OP_OPEN_EVENT = opcode_tag | 0x10000112,
    OP_CLOSE_EVENT = opcode_tag | 0x10004112,
    OP_OPEN_EVENT_2 = opcode_tag | 0x10000212,
    OP_CLOSE_EVENT_2 = opcode_tag | 0x10004212,

    // The two halves of the socket filter's exchange; the simulators pass them over.
    OP_FETCH_REQUEST = opcode_tag | 0x10000011,
    OP_FETCH_REPLY = opcode_tag | 0x10004011,

    // Markers: their meaning lies with the front end, and the engine only lets them pass.
    OP_MARKER_0 = opcode_tag | 0x10000000,
    OP_MARKER_2 = opcode_tag | 0x10000002,
    OP_MARKER_12 = opcode_tag | 0x10000012,
    OP_MARKER_15 = opcode_tag | 0x10000015,
    OP_MARKER_17 = opcode_tag | 0x10000017,
    OP_MARKER_412 = opcode_tag | 0x10000412,
    OP_MARKER_4012 = opcode_tag | 0x10004012,
    OP_MARKER_4015 = opcode_tag | 0x10004015,
    OP_MARKER_4412 = opcode_tag | 0x10004412,
    OP_MARKER_8003 = opcode_tag | 0x10008003,
    OP_MARKER_C003 = opcode_tag | 0x1000C003,
};

}  // namespace Nimbrel
