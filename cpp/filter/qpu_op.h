/// The instruction record: the one unit in which programs enter the engine.
#pragma once

#include <cstddef>

namespace Nimbrel {

/// One instruction, 88 bytes, packed back to back in the caller's array. The layout is shared with
/// every front end and with the remote service, so it is pinned below word by word.
struct QPUOp {
    unsigned long opcode;         ///< tag in the high 32 bits, operation in the low 32
    unsigned long target_mask;    ///< target qubits; label id for jumps; qubit count for reset
    unsigned long cond_mask;      ///< control qubits; the value of a write; second Pauli mask
    double angle;                 ///< degrees; the id of an event marker
    long cond_flag;               ///< read flag that lets the record act, 0 for always
    long read_flag;               ///< first read flag that a measurement stores into
    unsigned long cond_neg_mask;  ///< the controls that must be 0
    unsigned long target_offset;  ///< bit offset of `target_mask` in a wide register
    unsigned long cond_offset;    ///< bit offset of `cond_mask` and `cond_neg_mask`
    unsigned long reserved_a;     ///< carried along, read by no filter
    unsigned long reserved_b;     ///< carried along, read by no filter
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
