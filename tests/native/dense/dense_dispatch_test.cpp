#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "dense/dense_fixture.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long qubits = 4;

/// An opcode and the call of the register that it stands for.
struct Row {
    unsigned long opcode;
    std::function<void(QPU&, const QPUOp&)> call;
};

using Gate = void (QPU::*)(unsigned long, unsigned long, unsigned long, long);
using Rotation = void (QPU::*)(double, unsigned long, unsigned long, unsigned long, long);

Row gate(unsigned long opcode, Gate member) {
    return {opcode, [member](QPU& qpu, const QPUOp& op) {
                (qpu.*member)(op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);
            }};
}

Row rotation(unsigned long opcode, Rotation member) {
    return {opcode, [member](QPU& qpu, const QPUOp& op) {
                (qpu.*member)(op.angle, op.target_mask, op.cond_mask, op.cond_neg_mask,
                              op.cond_flag);
            }};
}

Row fixed_phase(unsigned long opcode, double angle) {
    return {opcode, [angle](QPU& qpu, const QPUOp& op) {
                qpu.phase(angle, op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);
            }};
}

const std::vector<Row> rows{
    gate(OP_X, &QPU::op_not),
    gate(OP_Y, &QPU::y),
    gate(OP_H, &QPU::hadamard),
    gate(OP_SWAP, &QPU::cswap),
    gate(OP_LELBOW, &QPU::lelbow),
    gate(OP_RELBOW, &QPU::relbow),
    gate(OP_Z, &QPU::cz),
    gate(OP_ROOTX, &QPU::rootx),
    gate(OP_ROOTX_INV, &QPU::rootx_inv),
    gate(OP_ROOTY, &QPU::rooty),
    gate(OP_ROOTY_INV, &QPU::rooty_inv),
    rotation(OP_PHASE, &QPU::phase),
    rotation(OP_RX, &QPU::rx),
    rotation(OP_RY, &QPU::ry),
    rotation(OP_RZ, &QPU::rz),
    fixed_phase(OP_T, 45.0),
    fixed_phase(OP_T_INV, -45.0),
    fixed_phase(OP_S, 90.0),
    fixed_phase(OP_S_INV, -90.0),
    {OP_PPR,
     [](QPU& qpu, const QPUOp& op) {
         qpu.ppr(op.angle, op.target_mask, op.cond_mask, static_cast<unsigned long>(op.read_flag),
                 op.cond_neg_mask, op.cond_flag);
     }},
    {OP_PPM,
     [](QPU& qpu, const QPUOp& op) {
         qpu.ppm(33, op.target_mask, op.cond_mask, op.cond_flag, op.read_flag);
     }},
    {OP_READ,
     [](QPU& qpu, const QPUOp& op) {
         qpu.read(op.target_mask, op.cond_flag, static_cast<unsigned long>(op.read_flag));
     }},
    {OP_WRITE,
     [](QPU& qpu, const QPUOp& op) {
         qpu.write(op.cond_mask, op.target_mask, op.cond_flag,
                   static_cast<unsigned long>(op.read_flag));
     }},
    {OP_CLEAR, [](QPU& qpu, const QPUOp& op) { qpu.write(0, op.target_mask, op.cond_flag, 0); }},
    {OP_FREE, [](QPU& qpu, const QPUOp& op) { qpu.write(0, op.target_mask, op.cond_flag, 0); }},
    {OP_FLAG_NAND,
     [](QPU& qpu, const QPUOp& op) {
         qpu.flag_nand(static_cast<long>(op.target_mask), static_cast<long>(op.cond_mask),
                       op.cond_flag, op.read_flag);
     }},
};

class DispatchTable : public DenseFilter {
  protected:
    void SetUp() override {
        reset(qubits);
        shape(twin, qubits, {2, true});
    }

    /// Runs a record on the filter and its call on the twin, from the same state, and compares.
    void compare(const Row& row, const QPUOp& op) {
        for (QPU* qpu : {filter.qpu, &twin}) {
            load(*qpu, uneven_state(1UL << qubits));
            qpu->classical_qubits = 0b1111;
            qpu->op_count = 0;
            qpu->read_flags = {0b0110'0100};  // flags 2, 5 and 6
        }
        set_random_seed(9);
        run(op);
        set_random_seed(9);
        row.call(twin, op);
        EXPECT_STATE(state_of(*filter.qpu), state_of(twin));
        EXPECT_EQ(filter.qpu->classical_qubits, twin.classical_qubits);
        EXPECT_EQ(filter.qpu->op_count, twin.op_count);
        EXPECT_EQ(filter.qpu->read_flags, twin.read_flags);
    }

    QPU twin{0, nullptr};
};

TEST_F(DispatchTable, EveryOperandGoesToItsPlace) {
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.opcode);
        Words words{.target_mask = 0b1010,
                    .cond_mask = 0b0101,
                    .angle = 33.3,
                    .read_flag = 5,
                    .cond_neg_mask = 0b0100};
        compare(row, record(row.opcode, words));
        words.cond_mask = 0;
        compare(row, record(row.opcode, words));
    }
}

TEST_F(DispatchTable, EveryOperationAsksTheClassicalCondition) {
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.opcode);
        for (const long condition : {1L, 5L, 3L, -5L, -3L, -1L}) {
            compare(row, record(row.opcode, {.target_mask = 0b1100,
                                             .angle = 33.3,
                                             .cond_flag = condition,
                                             .read_flag = 8}));
        }
    }
}

TEST_F(DispatchTable, ABatchOfPauliProductsRunsWithItsLastRecord) {
    const Row row{OP_PCP, [](QPU& qpu, const QPUOp& op) {
                      qpu.pcp(op.angle, op.target_mask, op.cond_mask, op.cond_flag);
                  }};
    compare(row, record(OP_PCP, {.target_mask = 0b0011, .cond_mask = 0b0001, .angle = 2000.0}));
    compare(row, record(OP_PCP, {.target_mask = 0b1100, .angle = 2001.0}));
    EXPECT_FALSE(same_bits(state_of(twin), uneven_state(1UL << qubits)));
}

TEST_F(DispatchTable, APauliMeasurementTakesItsSignFromTheTruncatedAngle) {
    // Only -1 inverts the outcome. A value that does not fit into an int is not truncated to it.
    const std::vector<std::pair<double, int>> signs{{-1.0, -1},
                                                    {-1.9, -1},
                                                    {-0.9, 0},
                                                    {1.0, 1},
                                                    {-2.0, -2},
                                                    {4294967295.0, 0},
                                                    {std::numeric_limits<double>::quiet_NaN(), 0}};
    for (const auto& [angle, sign] : signs) {
        SCOPED_TRACE(angle);
        const Row row{OP_PPM, [s = sign](QPU& qpu, const QPUOp& op) {
                          qpu.ppm(s, op.target_mask, op.cond_mask, op.cond_flag, op.read_flag);
                      }};
        compare(
            row,
            record(OP_PPM,
                   {.target_mask = 0b0011, .cond_mask = 0b0110, .angle = angle, .read_flag = 10}));
    }
}

TEST_F(DispatchTable, RecordsWithoutEffectHaveNone) {
    const unsigned long family_16 = 0x1234'5678'9ABC'DE16UL;
    for (const unsigned long opcode :
         {0UL | OP_Z_NOP, 0UL | OP_FETCH_REQUEST, 0UL | OP_FETCH_REPLY, 0UL | OP_MARKER_10000000,
          0UL | OP_MARKER_10000002, 0UL | OP_MARKER_10000012, 0UL | OP_MARKER_10000015,
          0UL | OP_MARKER_10000017, 0UL | OP_MARKER_10000412, 0UL | OP_MARKER_10004012,
          0UL | OP_MARKER_10004015, 0UL | OP_MARKER_10004412, 0UL | OP_MARKER_10008003,
          0UL | OP_MARKER_1000C003, 0UL | OP_JUMP_FAMILY, family_16}) {
        SCOPED_TRACE(testing::Message() << std::hex << opcode);
        compare({opcode, [](QPU&, const QPUOp&) {}},
                record(opcode, {.target_mask = 0b1111, .angle = 90.0, .read_flag = 5}));
    }
}

TEST_F(DispatchTable, AResetSizesTheRegister) {
    run(OP_RESET, {.target_mask = 2});
    EXPECT_EQ(filter.qpu->num_qubits, 2UL);
    EXPECT_STATE(state_of(*filter.qpu), basis(4, 0));
}

TEST_F(DispatchTable, RefusesWhatItDoesNotSimulate) {
    EXPECT_FAILURE(run(OP_EXTEND),
                   "qc.extend has not been implemented for the State-vector QPU sim.");
    EXPECT_FAILURE(run(OP_CALLBACK, {.read_flag = -12}), "Unhandled callback:[lookup:(-12)]");
    EXPECT_FAILURE(run(0x4E6D62720000ABCDUL), "Error: Unknown opcode: 0x4e6d62720000abcd\n");
    EXPECT_FAILURE(run(0x5), "Error: Unknown opcode: 0x5\n");
}

TEST_F(DispatchTable, RecordsBeforeAFailureHaveTakenEffect) {
    std::vector<QPUOp> ops(3);
    ops[0] = record(OP_X, {.target_mask = 0b0010});
    ops[1] = record(OP_EXTEND);
    ops[2] = record(OP_X, {.target_mask = 0b1000});
    EXPECT_THROW(filter.put_instructions(ops.data(), ops.size()), std::runtime_error);
    EXPECT_STATE(state_of(*filter.qpu), basis(16, 0b0010));
}

TEST_F(DispatchTable, AnOpenJumpAndTheEventsSurviveAReset) {
    run(OP_OPEN_EVENT, {.angle = 7.0});
    std::vector<QPUOp> ops(3);
    ops[0] = record(OP_RESET, {.target_mask = 2});
    ops[1] = record(OP_JUMP_FWD, {.target_mask = 5});
    ops[2] = record(OP_RESET, {.target_mask = 3});
    filter.put_instructions(ops.data(), ops.size());
    EXPECT_EQ(filter.qpu->num_qubits, 2UL) << "the second reset was skipped";
    run(OP_X, {.target_mask = 1});
    EXPECT_STATE(state_of(*filter.qpu), basis(4, 0));
    run(OP_LABEL, {.target_mask = 5});
    run(OP_X, {.target_mask = 1});
    EXPECT_STATE(state_of(*filter.qpu), basis(4, 1));
    EXPECT_EQ(filter.event_stack.ids, std::vector<unsigned long>{7});
}

TEST_F(DispatchTable, ACountThatNoVectorHoldsFailsBeforeAnyRecord) {
    const QPUOp op = record(OP_X, {.target_mask = 1});
    try {
        filter.put_instructions(&op, std::numeric_limits<unsigned long>::max());
        ADD_FAILURE() << "no exception";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "vector::reserve");
    }
    EXPECT_STATE(state_of(*filter.qpu), basis(16, 0));
}

using WithoutRegister = DenseFilter;

TEST_F(WithoutRegister, GatesAreRefusedWhateverTheirCondition) {
    for (const Row& row : rows) {
        if (row.opcode == OP_FLAG_NAND) continue;
        SCOPED_TRACE(testing::Message() << std::hex << row.opcode);
        EXPECT_FAILURE(run(row.opcode, {.target_mask = 1, .angle = 10.0, .cond_flag = -1}),
                       no_register_text);
    }
}

}  // namespace
