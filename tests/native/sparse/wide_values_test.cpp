#include "sparse/sparse_support.h"
#include "support/random.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long top = 1UL << 62;
constexpr unsigned long high = 1UL << 40;

/// Values, masks and indices of 64 bits. Arguments from Python have only 32.
class WideValues : public SparseFilter {
  protected:
    void SetUp() override {
        reset(63);
        load({{top | 1, {0.0, 1.0}}, {high, {0.5, 0.0}}, {0, {-0.5, 0.0}}});
    }
};

TEST_F(WideValues, APostselectionSeesThem) {
    filter.postselect(high, high);
    EXPECT_TERMS({top | 1, {0.0, 0.0}}, {high, {1.0, 0.0}}, {0, {0.0, 0.0}});
}

TEST_F(WideValues, ABitOutsideTheMaskFailsEveryTerm) {
    EXPECT_FAILURE(filter.postselect(high, top),
                   "qc.postselect() no non-zero terms match the desired value.");
    EXPECT_TERMS({top | 1, {0.0, 0.0}}, {high, {0.0, 0.0}}, {0, {0.0, 0.0}});
}

TEST_F(WideValues, Bit63IsIgnored) {
    constexpr unsigned long no_qubit = 1UL << 63;
    EXPECT_EQ(filter.peek_read_probability(no_qubit | top, no_qubit | top, 0.0), 1.0);
    EXPECT_EQ(filter.peek_read_probability(no_qubit, no_qubit, 0.0), 1.5);
    filter.postselect(no_qubit | top, no_qubit | top);
    EXPECT_TERMS({top | 1, {0.0, 1.0}}, {high, {0.0, 0.0}}, {0, {0.0, 0.0}});
}

TEST_F(WideValues, AProbabilitySeesThem) {
    EXPECT_EQ(filter.peek_read_probability(top, top, 0.0), 1.0);
    EXPECT_EQ(filter.peek_read_probability(0, top, 0.0), 0.5);
    EXPECT_EQ(filter.peek_read_probability(0, top, 0.25), 0.25);
    EXPECT_EQ(filter.peek_read_probability(high, top | high, 0.0), 0.25);
    EXPECT_EQ(filter.peek_read_probability(high, top, 0.0), 0.0);
}

TEST_F(WideValues, ASingleValueIsFoundByThem) {
    complex_t value{9.0, 9.0};
    filter.peek_value(top | 1, &value);
    EXPECT_STATE(State{value}, (State{{0.0, 1.0}}));
    filter.peek_value(high, &value);
    EXPECT_STATE(State{value}, (State{{0.5, 0.0}}));
    filter.peek_value(high | 1, &value);
    EXPECT_STATE(State{value}, (State{{0.0, 0.0}}));
}

TEST_F(WideValues, ASliceIsPackedFromThem) {
    State dest(8, complex_t{7.0, 7.0});
    std::string info = "as it was";
    filter.pull_state_specific(info, dest.data(), 4, top | 1);
    // Of the terms in which qubit 40 is 0, index 0 is packed to 0 and top | 1 to 3.
    EXPECT_STATE(State(dest.begin(), dest.begin() + 4),
                 (State{{-0.5, 0.0}, {0.0, 0.0}, {0.0, 0.0}, {0.0, 1.0}}));
    EXPECT_EQ(dest[4].re, 7.0);
    EXPECT_EQ(info, "as it was");
    filter.pull_state_specific(info, dest.data(), 8, top | high | 1);
    EXPECT_STATE(dest, (State{{-0.5, 0.0},
                              {0.0, 0.0},
                              {0.5, 0.0},
                              {0.0, 0.0},
                              {0.0, 0.0},
                              {0.0, 1.0},
                              {0.0, 0.0},
                              {0.0, 0.0}}));
}

TEST_F(WideValues, TheLargestTermsCarryThem) {
    unsigned long indices[4] = {7, 7, 7, 7};
    complex_t amplitudes[4];
    filter.peek_n_biggest_terms(4, indices, amplitudes);
    EXPECT_EQ(std::vector<unsigned long>(indices, indices + 4),
              (std::vector<unsigned long>{top | 1, high, 0, 0}));
    EXPECT_STATE(State(amplitudes, amplitudes + 4),
                 (State{{0.0, 1.0}, {0.5, 0.0}, {-0.5, 0.0}, {0.0, 0.0}}));
}

using Products = SparseFilter;

TEST_F(Products, NothingIsMeasuredAs0) {
    reset(2);
    load({{1, {0.0, -0.5}}});
    EXPECT_EQ(filter.ppm_as_gates(1, 0, 0), 0UL);
    EXPECT_EQ(filter.ppm_as_gates(-1, 0, 0), 0UL);
    EXPECT_TERMS({1, {0.0, -0.5}});
}

TEST_F(Products, ASignOfMinus1InvertsTheOutcome) {
    reset(63);
    run(OP_X, {.target_mask = top});
    EXPECT_EQ(filter.ppm_as_gates(1, 0, top), 1UL);
    EXPECT_EQ(filter.ppm_as_gates(-1, 0, top), 0UL);
    EXPECT_EQ(filter.ppm_as_gates(-2, 0, top), 1UL);
    EXPECT_EQ(filter.ppm_as_gates(0, 0, top), 1UL);
    EXPECT_EQ(filter.ppm_as_gates(1, 0, top | 2), 1UL);
    EXPECT_EQ(filter.ppm_as_gates(1, 0, 2), 0UL);
    EXPECT_EQ(filter.ppm_as_gates(-1, 0, 2), 1UL);
    EXPECT_TERMS({top, {1.0, 0.0}});
}

TEST_F(Products, ARepeatedMeasurementFindsTheSame) {
    reset(3);
    set_random_seed(5);
    for (const unsigned long z : {0b000UL, 0b101UL, 0b111UL, 0b010UL}) {
        const unsigned long first = filter.ppm_as_gates(1, 0b011, z);
        EXPECT_EQ(filter.ppm_as_gates(1, 0b011, z), first) << z;
        EXPECT_EQ(filter.ppm_as_gates(-1, 0b011, z), first ^ 1) << z;
        ASSERT_LE(filter.terms.size(), 8UL) << "partners that do not meet double the list";
    }
}

}  // namespace
