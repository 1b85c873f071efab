#include <gtest/gtest.h>

#include <numbers>

#include "core_register/gate_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr Complex i{0.0, 1.0};

/// A register of one qubit, which shows the columns of a gate's matrix.
class Matrices : public testing::Test {
  protected:
    Matrices() { qpu.reset(2, nullptr); }

    template <typename Gate>
    void expect_matrix(Gate&& gate, const Complex (&matrix)[4]) {
        const State start = random_state(2, seed_of_this_test());
        load(qpu, start);
        gate();
        EXPECT_NEAR_STATE(state_of(qpu), apply_matrix(start, matrix, 0b10));
    }

    QPU qpu{0, nullptr};
};

TEST_F(Matrices, RootsAndTheirInverses) {
    const Complex plus{0.5, 0.5};
    const Complex minus{0.5, -0.5};
    expect_matrix([this] { qpu.rootx(2, 0, 0, 0); }, {plus, minus, minus, plus});
    expect_matrix([this] { qpu.rootx_inv(2, 0, 0, 0); }, {minus, plus, plus, minus});
    expect_matrix([this] { qpu.rooty(2, 0, 0, 0); }, {plus, -plus, plus, plus});
    expect_matrix([this] { qpu.rooty_inv(2, 0, 0, 0); }, {minus, minus, -minus, minus});
}

TEST_F(Matrices, Y) {
    expect_matrix([this] { qpu.y(2, 0, 0, 0); }, {0, -i, i, 0});
}

// The entries' real parts are +0, so no product of them with 0.5 or 0 is a negative zero.
TEST_F(Matrices, TheEntriesOfYHaveNoNegativeZero) {
    load(qpu, {{0.5, 0.0}, {0.0, 0.0}, {0.5, 0.0}, {0.0, 0.0}});
    qpu.y(2, 0, 0, 0);
    const State state = state_of(qpu);
    EXPECT_FALSE(std::signbit(state[0].re));
    EXPECT_EQ(state[0].im, -0.5);
    EXPECT_FALSE(std::signbit(state[2].re));
    EXPECT_EQ(state[2].im, 0.5);
}

TEST_F(Matrices, Rotations) {
    for (const double angle : {30.0, -77.0, 180.0, 360.0, 1e-3}) {
        const double half = angle * std::numbers::pi / 360.0;
        const double c = std::cos(half);
        const double s = std::sin(half);
        expect_matrix([&] { qpu.rx(angle, 2, 0, 0, 0); }, {c, -i * s, -i * s, c});
        expect_matrix([&] { qpu.ry(angle, 2, 0, 0, 0); }, {c, -s, s, c});
        expect_matrix([&] { qpu.rz(angle, 2, 0, 0, 0); }, {c - i * s, 0, 0, c + i * s});
    }
}

TEST_F(Matrices, RxzIsARotationAndThenAPhase) {
    for (const double x_angle : {0.0, 30.0, -200.0}) {
        for (const double phase_angle : {0.0, 45.0, -120.0}) {
            const double half = x_angle * std::numbers::pi / 360.0;
            const Complex turn = std::polar(1.0, phase_angle * std::numbers::pi / 180.0);
            const Complex c = std::cos(half);
            const Complex is = i * std::sin(half);
            expect_matrix([&] { qpu.rxz(x_angle, phase_angle, 2, 0, 0, 0); },
                          {c, -is, -is * turn, c * turn});
        }
    }
}

TEST_F(Matrices, RxzEqualsItsTwoGates) {
    const State start = random_state(2, seed_of_this_test());
    load(qpu, start);
    qpu.rx(33.0, 1, 0, 0, 0);
    qpu.phase(71.0, 1, 0, 0, 0);
    const State by_two_gates = state_of(qpu);
    load(qpu, start);
    qpu.rxz(33.0, 71.0, 1, 0, 0, 0);
    EXPECT_NEAR_STATE(state_of(qpu), by_two_gates);
}

// Degrees are multiplied by pi and divided by 180. Half an angle is one more product, by 0.5.
TEST_F(Matrices, AnglesAreConvertedInOneOrder) {
    for (const double angle : {1.0, 7.0, 29.0, 101.0}) {
        load(qpu, basis(4, 1));
        qpu.phase(angle, 1, 0, 0, 0);
        const double radians = angle * std::numbers::pi / 180.0;
        EXPECT_EQ(qpu.get_value(1).re, std::cos(radians));
        EXPECT_EQ(qpu.get_value(1).im, std::sin(radians));
        load(qpu, basis(4, 0));
        qpu.ry(angle, 1, 0, 0, 0);
        EXPECT_EQ(qpu.get_value(0).re, std::cos(radians * 0.5));
        EXPECT_EQ(qpu.get_value(1).re, std::sin(radians * 0.5));
    }
}

}  // namespace
