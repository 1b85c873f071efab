/// The opcodes that the simulating filters recognise. Constants only, usable from any thread.
///
/// `python/nimbrel/opcodes.py` has the same names without "OP_" and the same numbers.
#pragma once

namespace Nimbrel {

/// The ASCII characters "Nmbr", the high half of every opcode. Dispatchers compare all 64 bits, so
/// a record with another tag is an unknown opcode.
inline constexpr unsigned long opcode_tag = 0x4E6D6272UL << 32;

/// Low byte of all jump opcodes. The record loop handles every opcode with this byte, whatever its
/// tag.
inline constexpr unsigned long jump_low_byte = 0x16;

/// Bit 28 marks a record that is not a gate. Bit 14 marks the inverse or the closing half of an
/// operation.
enum Opcode : unsigned long {
    // Gates.
    OP_X = opcode_tag | 0x0005,
    OP_Y = opcode_tag | 0x0006,
    OP_PHASE = opcode_tag | 0x0008,
    OP_H = opcode_tag | 0x0009,
    OP_SWAP = opcode_tag | 0x000C,
    OP_PPR = opcode_tag | 0x000D,
    OP_PCP = opcode_tag | 0x0013,
    OP_LELBOW = opcode_tag | 0x0014,
    OP_RELBOW = opcode_tag | 0x4014,
    OP_RX = opcode_tag | 0x0105,
    OP_RY = opcode_tag | 0x0106,
    OP_RZ = opcode_tag | 0x0107,
    OP_Z_NOP = opcode_tag | 0x0207,
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
    OP_JUMP_FAMILY = opcode_tag | 0x10000416,
    OP_JUMP_BACK = opcode_tag | 0x10000516,

    // Events, of two kinds with the same effect.
    OP_OPEN_EVENT = opcode_tag | 0x10000112,
    OP_CLOSE_EVENT = opcode_tag | 0x10004112,
    OP_OPEN_EVENT_2 = opcode_tag | 0x10000212,
    OP_CLOSE_EVENT_2 = opcode_tag | 0x10004212,

    // Request and reply of the socket filter; the simulators ignore both.
    OP_FETCH_REQUEST = opcode_tag | 0x10000011,
    OP_FETCH_REPLY = opcode_tag | 0x10004011,

    // Markers: the engine ignores them, and the front end defines their meaning. A name is the low
    // half of the number.
    OP_MARKER_10000000 = opcode_tag | 0x10000000,
    OP_MARKER_10000002 = opcode_tag | 0x10000002,
    OP_MARKER_10000012 = opcode_tag | 0x10000012,
    OP_MARKER_10000015 = opcode_tag | 0x10000015,
    OP_MARKER_10000017 = opcode_tag | 0x10000017,
    OP_MARKER_10000412 = opcode_tag | 0x10000412,
    OP_MARKER_10004012 = opcode_tag | 0x10004012,
    OP_MARKER_10004015 = opcode_tag | 0x10004015,
    OP_MARKER_10004412 = opcode_tag | 0x10004412,
    OP_MARKER_10008003 = opcode_tag | 0x10008003,
    OP_MARKER_1000C003 = opcode_tag | 0x1000C003,
};

}  // namespace Nimbrel
