/// A record for a test, from the words that it needs.
#pragma once

#include "filter/qpu_op.h"

namespace Nimbrel::Testing {

/// The words of a record beside its opcode.
struct Words {
    unsigned long target_mask = 0;
    unsigned long cond_mask = 0;
    double angle = 0.0;
    long cond_flag = 0;
    long read_flag = 0;
    unsigned long cond_neg_mask = 0;
    unsigned long target_offset = 0;
    unsigned long cond_offset = 0;
};

inline QPUOp record(unsigned long opcode, const Words& words = {}) {
    QPUOp op{};
    op.opcode = opcode;
    op.target_mask = words.target_mask;
    op.cond_mask = words.cond_mask;
    op.angle = words.angle;
    op.cond_flag = words.cond_flag;
    op.read_flag = words.read_flag;
    op.cond_neg_mask = words.cond_neg_mask;
    op.target_offset = words.target_offset;
    op.cond_offset = words.cond_offset;
    return op;
}

}  // namespace Nimbrel::Testing
