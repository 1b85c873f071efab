#include <cmath>
#include <numbers>
#include <set>

#include "sparse/sparse_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr double h = 0x1.6a09e667f3bccp-1;
constexpr complex_t zero{0.0, 0.0};

using Pairs = SparseFilter;

TEST_F(Pairs, ThePartnerOfALoneTermIsAppended) {
    reset(2);
    run(OP_H, {.target_mask = 0b10});
    EXPECT_TERMS({0, {h, 0.0}}, {2, {h, 0.0}});
    reset(2);
    run(OP_X, {.target_mask = 0b10});
    run(OP_H, {.target_mask = 0b10});
    EXPECT_TERMS({2, {-h, -0.0}}, {0, {h, 0.0}});
}

TEST_F(Pairs, TermsThatCancelStayInTheList) {
    reset(1);
    run(OP_H, {.target_mask = 1});
    run(OP_H, {.target_mask = 1});
    EXPECT_TERMS({0, {0.9999999999999998, 0.0}}, {1, zero});
}

TEST_F(Pairs, AZeroElementAppendsAZero) {
    reset(1);
    run(OP_RZ, {.target_mask = 1, .angle = 60.0});
    const double half = 60.0 * std::numbers::pi / 180.0 * 0.5;
    EXPECT_TERMS({0, {std::cos(half), -std::sin(half)}}, {1, zero});
    reset(1);
    run(OP_Y, {.target_mask = 1});
    EXPECT_TERMS({0, zero}, {1, {0.0, 1.0}});
    run(OP_Y, {.target_mask = 1});
    EXPECT_TERMS({0, {1.0, 0.0}}, {1, zero});
}

TEST_F(Pairs, AppendedTermsAreNotVisitedAgain) {
    reset(2);
    load({{3, {1.0, 0.0}}, {0, {2.0, 0.0}}});
    run(OP_H, {.target_mask = 0b01});
    EXPECT_TERMS({0, {2.0 * h, 0.0}}, {3, {-h, -0.0}}, {1, {2.0 * h, 0.0}}, {2, {h, 0.0}});
}

/// With the target bit cleared the indices are 5, 4, 4 (marked) and 0.
TEST_F(Pairs, TheListIsInOrderOfItsMarkedKeys) {
    reset(3);
    load({{5, {1.0, 0.0}}, {4, {3.0, 0.0}}, {6, {5.0, 0.0}}, {0, {7.0, 0.0}}});
    run(OP_H, {.target_mask = 0b010, .cond_mask = 0b001, .cond_neg_mask = 0b001});
    // 5 does not meet the controls; 4 and 6 are a pair; 0 has no partner.
    EXPECT_TERMS({0, {7.0 * h, 0.0}}, {4, {8.0 * h, 0.0}}, {6, {-2.0 * h, 0.0}}, {5, {1.0, 0.0}},
                 {2, {7.0 * h, 0.0}});
}

TEST_F(Pairs, WithoutATermThatMeetsTheControlsTheListIsSortedAndUnmarked) {
    reset(3);
    load({{7, {1.0, 0.0}}, {1, {2.0, 0.0}}, {2, {3.0, 0.0}}, {0, {4.0, 0.0}}});
    for (const unsigned long opcode : {OP_H, OP_RY, OP_RX, OP_Y, OP_ROOTY}) {
        run(opcode, {.target_mask = 0b010, .cond_mask = 0b010, .angle = 30.0});
        EXPECT_TERMS({0, {4.0, 0.0}}, {2, {3.0, 0.0}}, {1, {2.0, 0.0}}, {7, {1.0, 0.0}});
    }
}

TEST_F(Pairs, LeaveNoMarksAndNoIndexTwice) {
    reset(5);
    const unsigned long gates[] = {OP_H,     OP_Y,     OP_RX,        OP_RY,  OP_RZ,
                                   OP_ROOTX, OP_ROOTY, OP_ROOTX_INV, OP_PPR, OP_ROOTY_INV};
    unsigned long mask = 1;
    for (int round = 0; round < 40; ++round) {
        for (const unsigned long gate : gates) {
            mask = mask * 6364136223846793005UL + 1442695040888963407UL;
            run(gate, {.target_mask = mask >> 59,
                       .cond_mask = mask >> 54 & mask >> 49,
                       .angle = 25.0,
                       .cond_neg_mask = mask >> 44});
            std::set<unsigned long> indices;
            for (const term_t& term : filter.terms) {
                ASSERT_EQ(term.key & 1, 0UL);
                ASSERT_LT(term.key, 64UL);
                indices.insert(term.key);
            }
            ASSERT_EQ(indices.size(), filter.terms.size());
        }
        if (filter.terms.size() == 32) reset(5);
    }
}

TEST_F(Pairs, TermsOfOneIndexKeepTheirOrder) {
    reset(2);
    load({{3, {1.0, 0.0}}, {0, {2.0, 0.0}}, {3, {3.0, 0.0}}, {0, {4.0, 0.0}}});
    run(OP_H, {.target_mask = 0b10, .cond_mask = 0b10});
    EXPECT_TERMS({0, {2.0, 0.0}}, {0, {4.0, 0.0}}, {3, {1.0, 0.0}}, {3, {3.0, 0.0}});
}

using Walks = SparseFilter;

TEST_F(Walks, KeepTheOrderOfTheList) {
    reset(3);
    load({{6, {1.0, -0.0}}, {1, {0.0, 2.0}}, {4, {-3.0, 0.0}}});
    run(OP_X, {.target_mask = 0b101});
    EXPECT_TERMS({3, {1.0, -0.0}}, {4, {0.0, 2.0}}, {1, {-3.0, 0.0}});
    run(OP_SWAP, {.target_mask = 0b110});
    EXPECT_TERMS({5, {1.0, -0.0}}, {2, {0.0, 2.0}}, {1, {-3.0, 0.0}});
    run(OP_Z, {.target_mask = 0b001});
    EXPECT_TERMS({5, {-1.0, 0.0}}, {2, {0.0, 2.0}}, {1, {3.0, -0.0}});
    run(OP_S_INV, {.target_mask = 0b010});
    EXPECT_TERMS({5, {-1.0, 0.0}}, {2, {2.0, 2.0 * 6.123233995736766e-17}}, {1, {3.0, -0.0}});
}

TEST_F(Walks, ZNegatesANaN) {
    reset(1);
    load({{1, {std::nan(""), -std::nan("")}}});
    run(OP_Z, {.target_mask = 1});
    EXPECT_TRUE(std::signbit(filter.terms[0].amplitude.re));
    EXPECT_FALSE(std::signbit(filter.terms[0].amplitude.im));
}

class Members : public SparseFilter {
  protected:
    void SetUp() override {
        reset(2);
        load({{1, {1.0, 0.0}}});
    }

    const complex_t matrix[4] = {{2.0, 0.0}, {3.0, 0.0}, {5.0, 0.0}, {7.0, 0.0}};
};

TEST_F(Members, ObeyTheirConditions) {
    for (const long flag : {-1L, 9L, -9L}) {
        filter.apply_phase(90.0, 1, 0, 0, flag);
        filter.apply_hadamard(1, 0, 0, flag);
        filter.apply_matrix(matrix, 1, 0, 0, flag);
        filter.apply_write(0, 0b01, flag, 0);
        filter.apply_write(0, 0b11, flag, 0);
    }
    filter.apply_phase(90.0, 1, 2, 0, 0);
    filter.apply_hadamard(1, 2, 0, 0);
    filter.apply_matrix(matrix, 1, 2, 0, 0);
    EXPECT_TERMS({1, {1.0, 0.0}});
}

TEST_F(Members, AMatrixIsGivenByRows) {
    filter.apply_matrix(matrix, 1, 2, 2, 1);
    EXPECT_TERMS({1, {7.0, 0.0}}, {0, {3.0, 0.0}});
    load({{0, {1.0, 0.0}}});
    filter.apply_matrix(matrix, 1, 0, 0, 0);
    EXPECT_TERMS({0, {2.0, 0.0}}, {1, {5.0, 0.0}});
    load({{0, {1.0, 0.0}}, {1, {10.0, 0.0}}});
    filter.apply_matrix(matrix, 1, 0, 0, 0);
    EXPECT_TERMS({0, {32.0, 0.0}}, {1, {75.0, 0.0}});
}

TEST_F(Members, AWriteTakesItsFlagsBySign) {
    filter.apply_write(0b10, 0b01, 0, -7);
    EXPECT_TERMS({0, {1.0, 0.0}});
    EXPECT_EQ(filter.qpu->get_read_flag(-7), 1);
    EXPECT_EQ(filter.qpu->get_read_flag(7), 0);
    filter.apply_write(0b110, 0b111, 0, 8);
    EXPECT_TERMS({2, {1.0, 0.0}});
    EXPECT_EQ(filter.qpu->read_flags, std::vector<unsigned long>{0});
}

}  // namespace
