#include "record_decoder.h"

#include <iterator>
#include <limits>

#include "filter/opcodes.h"

namespace Nimbrel::Fuzzing {
namespace {

// Frequent opcodes come twice. The order is part of the corpus: append at the end.
constexpr unsigned long opcodes[] = {
    OP_X,
    OP_H,
    OP_PHASE,
    OP_SWAP,
    OP_PPR,
    OP_READ,
    OP_WRITE,
    OP_PPM,
    OP_RESET,
    OP_Y,
    OP_PCP,
    OP_LELBOW,
    OP_RELBOW,
    OP_RX,
    OP_RY,
    OP_RZ,
    OP_Z_NOP,
    OP_T,
    OP_T_INV,
    OP_S,
    OP_S_INV,
    OP_Z,
    OP_ROOTX,
    OP_ROOTX_INV,
    OP_ROOTY,
    OP_ROOTY_INV,
    OP_CLEAR,
    OP_FREE,
    OP_FLAG_NAND,
    OP_EXTEND,
    OP_CALLBACK,
    OP_JUMP_FWD,
    OP_LABEL,
    OP_JUMP_FAMILY,
    OP_JUMP_BACK,
    OP_OPEN_EVENT,
    OP_CLOSE_EVENT,
    OP_OPEN_EVENT_2,
    OP_CLOSE_EVENT_2,
    OP_FETCH_REQUEST,
    OP_FETCH_REPLY,
    OP_MARKER_10000000,
    OP_X,
    OP_H,
    OP_Z,
    OP_S,
    OP_PPR,
    OP_EXTEND,
    OP_READ,
    OP_RX,
    0x10000216,  // a jump with another tag
};

constexpr double angles[] = {
    0.0,
    45.0,
    -45.0,
    90.0,
    -90.0,
    180.0,
    -180.0,
    270.0,
    360.0,
    720.0,
    135.0,
    -0.0,
    30.0,
    0.1,
    1.0,
    -1.0,
    1000.0,
    2000.0,
    2001.0,
    3000.0,
    3001.0,
    3002.0,
    1e-300,
    4.45e-322,
    1e308,
    9.3e18,
    -9.3e18,
    1.85e19,
    31000.0,
    std::numeric_limits<double>::infinity(),
    -std::numeric_limits<double>::infinity(),
    std::numeric_limits<double>::quiet_NaN(),
};

constexpr long hostile_flags[] = {
    std::numeric_limits<long>::min(),
    std::numeric_limits<long>::max(),
    100'000'000,
    -100'000'000,
    99'999'999,
    100'000'001,
    1L << 32,
    -(1L << 31),
};

constexpr unsigned long hostile_words[] = {
    ~0UL, 1UL << 63, 1UL << 31, 1UL << 32, 0x5555555555555555, ~0UL - 62, ~0UL << 60, 0,
};

unsigned long hostile_word(ByteReader& in) {
    const unsigned choice = in.byte();
    return choice < 0xE0 ? hostile_words[choice % std::size(hostile_words)] : in.word();
}

/// One bit. Sometimes one just outside the register.
unsigned long qubit_bit(unsigned byte, const RecordShape& shape) {
    if (!shape.near_qubits.empty()) {
        return 1UL << (shape.near_qubits[byte % shape.near_qubits.size()] % 64);
    }
    const unsigned long width = shape.qubits < 63 ? shape.qubits + (byte >= 0xF0 ? 1 : 0) : 64;
    return 1UL << (width == 0 ? 0 : byte % width);
}

unsigned long decode_offset(ByteReader& in, const RecordShape& shape) {
    const unsigned choice = in.byte();
    if (choice >= 0xF8) return hostile_word(in);
    if (choice >= 0xE0) return in.byte();
    return choice % (shape.words + 1) * 64;
}

unsigned long decode_size(ByteReader& in, const RecordShape& shape) {
    const unsigned choice = in.byte();
    if (choice < 0xA0 || shape.sizes.empty()) return shape.qubits;
    return shape.sizes[choice % shape.sizes.size()];
}

unsigned long decode_label(ByteReader& in) {
    const unsigned choice = in.byte();
    return choice < 0xF0 ? choice % 4 : hostile_word(in);
}

unsigned long decode_opcode(unsigned first, ByteReader& in) {
    if (first < 0xE0) return opcodes[(first & 0x7F) % std::size(opcodes)];
    const unsigned long low = in.byte() | in.byte() << 8 | (first & 1) << 28;
    return first < 0xEF ? opcode_tag | low : in.word();
}

bool reads_angle(unsigned long opcode) {
    switch (opcode) {
        case OP_PHASE:
        case OP_PPR:
        case OP_PPM:
        case OP_PCP:
        case OP_RX:
        case OP_RY:
        case OP_RZ:
        case OP_OPEN_EVENT:
        case OP_CLOSE_EVENT:
        case OP_OPEN_EVENT_2:
        case OP_CLOSE_EVENT_2:
            return true;
        default:
            return false;
    }
}

void decode_target(QPUOp& op, unsigned kind, ByteReader& in, const RecordShape& shape) {
    switch (op.opcode) {
        case OP_RESET:
            op.target_mask = decode_size(in, shape);
            break;
        case OP_LABEL:
        case OP_JUMP_FWD:
            op.target_mask = decode_label(in);
            break;
        case OP_FLAG_NAND:
            op.target_mask = static_cast<unsigned long>(decode_flag(in));
            op.cond_mask = static_cast<unsigned long>(decode_flag(in));
            break;
        default:
            op.target_mask = decode_mask(in, shape, kind);
    }
}

}  // namespace

unsigned long decode_mask(ByteReader& in, const RecordShape& shape, unsigned kind) {
    switch (kind % 4) {
        case 0:
            return qubit_bit(in.byte(), shape);
        case 1:
            return qubit_bit(in.byte(), shape) | qubit_bit(in.byte(), shape);
        case 2:
            return in.byte();
        default:
            return hostile_word(in);
    }
}

double decode_angle(ByteReader& in) {
    const unsigned choice = in.byte();
    if (choice < 0xC0) return angles[choice % std::size(angles)];
    return choice < 0xF8 ? static_cast<double>(in.byte()) * 1.7 - 200.0 : in.number();
}

long decode_flag(ByteReader& in) {
    const unsigned choice = in.byte();
    if (choice == 0x80) return in.one_of(hostile_flags);
    return static_cast<signed char>(choice) / 4;
}

// The second byte: kind of targets (2 bits), kind of controls (2), then one bit each for controls,
// negated controls, the classical condition, and offsets.
DecodedRecord decode_record(unsigned first, ByteReader& in, const RecordShape& shape) {
    QPUOp op{};
    op.opcode = decode_opcode(first, in);
    const unsigned fields = in.byte();
    decode_target(op, fields, in, shape);
    const bool is_product = op.opcode == OP_PPR || op.opcode == OP_PPM || op.opcode == OP_PCP;
    const bool is_value = op.opcode == OP_WRITE || op.opcode == OP_FREE;
    if ((fields & 0x10) != 0 || is_product || is_value) {
        op.cond_mask = decode_mask(in, shape, fields >> 2);
    }
    if ((fields & 0x20) != 0)
        op.cond_neg_mask = in.byte() < 0xC0 ? op.cond_mask & in.byte() : hostile_word(in);
    if ((fields & 0x40) != 0) op.cond_flag = decode_flag(in);
    if ((fields & 0x80) != 0) {
        op.target_offset = decode_offset(in, shape);
        op.cond_offset = decode_offset(in, shape);
    }
    if (reads_angle(op.opcode)) op.angle = decode_angle(in);
    if (op.opcode == OP_PPR) {
        if ((fields & 0x10) != 0) op.read_flag = static_cast<long>(decode_mask(in, shape, 0));
    } else if (op.opcode != OP_X && op.opcode != OP_H) {
        op.read_flag = decode_flag(in);
    }
    return {op, first >= 0x80};
}

}  // namespace Nimbrel::Fuzzing
