/// The instruction record: programs enter the engine as arrays of it. Plain data, for any thread.
#pragma once

#include <cstddef>

namespace Nimbrel {

/// One instruction of 88 bytes, contiguous in the caller's array. Every front end and the remote
/// service use the same record format, so the assertions below fix the offset of each field.
struct QPUOp {
    unsigned long opcode;         ///< tag in the high 32 bits, operation in the low 32
    unsigned long target_mask;    ///< target qubits; label id for jumps; qubit count for reset
    unsigned long cond_mask;      ///< control qubits; the value of a write; second Pauli mask
    double angle;                 ///< degrees; the id of an event
    long cond_flag;               ///< classical condition: a read flag, or 0 for none
    long read_flag;               ///< first read flag of a measurement's results
    unsigned long cond_neg_mask;  ///< negated controls, a subset of `cond_mask`
    unsigned long
        target_offset;          ///< bit offset of `target_mask` in a register wider than 64 qubits
    unsigned long cond_offset;  ///< bit offset of `cond_mask` and `cond_neg_mask`
    unsigned long reserved_a;   ///< no filter reads it
    unsigned long reserved_b;   ///< no filter reads it
};

static_assert(sizeof(QPUOp) == 88);
static_assert(offsetof(QPUOp, opcode) == 0);
static_assert(offsetof(QPUOp, target_mask) == 8);
static_assert(offsetof(QPUOp, cond_mask) == 16);
static_assert(offsetof(QPUOp, angle) == 24);
static_assert(offsetof(QPUOp, cond_flag) == 32);
static_assert(offsetof(QPUOp, read_flag) == 40);
static_assert(offsetof(QPUOp, cond_neg_mask) == 48);
static_assert(offsetof(QPUOp, target_offset) == 56);
static_assert(offsetof(QPUOp, cond_offset) == 64);
static_assert(offsetof(QPUOp, reserved_a) == 72);
static_assert(offsetof(QPUOp, reserved_b) == 80);

}  // namespace Nimbrel
