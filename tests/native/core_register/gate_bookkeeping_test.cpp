// How each gate changes the operation count and the mask of classical qubits.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "core_register/gate_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

/// A gate with its other arguments fixed.
struct Gate {
    std::string name;
    std::function<void(QPU&, unsigned long, unsigned long, unsigned long, long)> call;

    friend void PrintTo(const Gate& gate, std::ostream* out) { *out << gate.name; }
};

using FourArguments = void (QPU::*)(unsigned long, unsigned long, unsigned long, long);
using AngleArguments = void (QPU::*)(double, unsigned long, unsigned long, unsigned long, long);

Gate plain(const std::string& name, FourArguments method) {
    return {name, [method](QPU& qpu, unsigned long t, unsigned long c, unsigned long n, long f) {
                (qpu.*method)(t, c, n, f);
            }};
}

Gate rotation(const std::string& name, AngleArguments method) {
    return {name, [method](QPU& qpu, unsigned long t, unsigned long c, unsigned long n, long f) {
                (qpu.*method)(30.0, t, c, n, f);
            }};
}

const Gate rxz{"rxz", [](QPU& qpu, unsigned long t, unsigned long c, unsigned long n, long f) {
                   qpu.rxz(30.0, 40.0, t, c, n, f);
               }};
const Gate ppr{"ppr", [](QPU& qpu, unsigned long t, unsigned long c, unsigned long n, long f) {
                   qpu.ppr(30.0, t, 0, c, n, f);
               }};

/// Gates that count once for each target and leave no target classical.
const std::vector<Gate> per_target_gates{plain("hadamard", &QPU::hadamard),
                                         plain("rootx", &QPU::rootx),
                                         plain("rootx_inv", &QPU::rootx_inv),
                                         plain("rooty", &QPU::rooty),
                                         plain("rooty_inv", &QPU::rooty_inv),
                                         plain("y", &QPU::y),
                                         rotation("rx", &QPU::rx),
                                         rotation("ry", &QPU::ry),
                                         rotation("rz", &QPU::rz),
                                         rxz};

/// Gates that are a NOT without a control, which counts once a call.
const std::vector<Gate> nots{plain("cnot", &QPU::cnot), plain("op_not", &QPU::op_not),
                             plain("lelbow", &QPU::lelbow), plain("relbow", &QPU::relbow)};

std::vector<Gate> all_gates() {
    std::vector<Gate> gates = per_target_gates;
    gates.insert(gates.end(), nots.begin(), nots.end());
    gates.push_back(plain("cz", &QPU::cz));
    gates.push_back(rotation("phase", &QPU::phase));
    gates.push_back(plain("cswap", &QPU::cswap));
    gates.push_back(ppr);
    return gates;
}

/// Three qubits in blocks of two, all known to be classical.
class Bookkeeping : public testing::TestWithParam<Gate> {
  protected:
    void SetUp() override {
        shape(qpu, 3, {2, false});
        load(qpu, start);
        qpu.classical_qubits = ~0UL;
    }

    void call(unsigned long targets, unsigned long conds = 0, long flag = 0) {
        GetParam().call(qpu, targets, conds, 0, flag);
    }

    const State start = random_state(3, 1);
    QPU qpu{0, nullptr};
};

class PerTargetGate : public Bookkeeping {};
INSTANTIATE_TEST_SUITE_P(Gates, PerTargetGate, testing::ValuesIn(per_target_gates));

TEST_P(PerTargetGate, CountsEachTargetInsideTheRegister) {
    call(0b110);
    EXPECT_EQ(qpu.op_count, 2UL);
    call(0b1000);
    EXPECT_EQ(qpu.op_count, 2UL);
    call(0b11111, 0b100);
    EXPECT_EQ(qpu.op_count, 5UL);
}

TEST_P(PerTargetGate, LeavesNoTargetInsideTheRegisterClassical) {
    call(0b101, 0b010);
    EXPECT_EQ(qpu.classical_qubits & 0b111, 0b010UL);
}

class NotGate : public Bookkeeping {};
INSTANTIATE_TEST_SUITE_P(Gates, NotGate, testing::ValuesIn(nots));

TEST_P(NotGate, CountsOnceWithoutControls) {
    call(0b111);
    EXPECT_EQ(qpu.op_count, 1UL);
    // A control outside the register is dropped.
    call(0b111, 0b1000);
    EXPECT_EQ(qpu.op_count, 2UL);
}

TEST_P(NotGate, CountsEachTargetWithControls) {
    call(0b110, 0b001);
    EXPECT_EQ(qpu.op_count, 2UL);
}

TEST_P(NotGate, LeavesNoTargetClassical) {
    call(0b10100, 0b001);
    EXPECT_EQ(qpu.classical_qubits, ~0b10100UL);
}

class AnyGate : public Bookkeeping {};
INSTANTIATE_TEST_SUITE_P(Gates, AnyGate, testing::ValuesIn(all_gates()));

TEST_P(AnyGate, AFailedConditionChangesNothing) {
    for (const long flag : {-1L, 5L, -5L}) call(0b011, 0b100, flag);
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_EQ(qpu.classical_qubits, ~0UL);
    EXPECT_STATE(state_of(qpu), start);
}

TEST_P(AnyGate, FlagsZeroAndOneBothAct) {
    call(0b011, 0b100, 0);
    const State after_zero = state_of(qpu);
    EXPECT_FALSE(same_bits(after_zero, start));
    load(qpu, start);
    call(0b011, 0b100, 1);
    EXPECT_STATE(state_of(qpu), after_zero);
}

TEST_P(AnyGate, AStoredFlagDecides) {
    qpu.set_read_flag(5, 1);
    call(0b011, 0b100, -5);
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_STATE(state_of(qpu), start);
    call(0b011, 0b100, 5);
    EXPECT_GT(qpu.op_count, 0UL);
    EXPECT_FALSE(same_bits(state_of(qpu), start));
}

TEST_P(AnyGate, WithoutARegisterEvenAFailedConditionThrows) {
    QPU none(0, nullptr);
    EXPECT_FAILURE(GetParam().call(none, 1, 0, 0, -1), no_register_text);
}

class OtherGates : public RegisterLayouts {
  protected:
    void SetUp() override {
        RegisterLayouts::SetUp();
        qpu.classical_qubits = ~0UL;
    }
};
INSTANTIATE_TEST_SUITE_P(Layouts, OtherGates, testing::ValuesIn(all_layouts));

TEST_P(OtherGates, DiagonalGatesLeaveQubitsClassical) {
    qpu.cz(0b011, 0b100, 0, 0);
    EXPECT_EQ(qpu.op_count, 2UL);
    qpu.phase(30.0, 0b011, 0b100, 0, 0);
    EXPECT_EQ(qpu.op_count, 3UL);
    EXPECT_EQ(qpu.classical_qubits, ~0UL);
}

TEST_P(OtherGates, DiagonalGatesWithoutQubits) {
    qpu.cz(0, 0, 0, 0);
    qpu.cz(0b1000, 0b1000, 0, 0);
    EXPECT_EQ(qpu.op_count, 0UL);
    qpu.phase(30.0, 0, 0, 0, 0);
    EXPECT_EQ(qpu.op_count, 0UL);
    qpu.phase(30.0, 0b1000, 0, 0, 0);
    EXPECT_EQ(qpu.op_count, 1UL) << "qubits outside the register are counted, none at all is not";
    EXPECT_STATE(state_of(qpu), basis(8, 0));
}

TEST_P(OtherGates, RotationsByNothingAreNoGates) {
    qpu.rx(0.0, 1, 0, 0, 0);
    qpu.ry(-0.0, 1, 0, 0, 0);
    qpu.rz(0.0, 1, 0, 0, 0);
    qpu.rxz(0.0, -0.0, 1, 0, 0, 0);
    EXPECT_EQ(qpu.op_count, 0UL);
    EXPECT_EQ(qpu.classical_qubits, ~0UL);
    qpu.rxz(0.0, 90.0, 1, 0, 0, 0);
    qpu.rxz(90.0, 0.0, 1, 0, 0, 0);
    EXPECT_EQ(qpu.op_count, 2UL);
    EXPECT_EQ(qpu.classical_qubits, ~1UL);
}

TEST_P(OtherGates, ARotationByNanGoesOn) {
    qpu.rx(NAN, 1, 0, 0, 0);
    EXPECT_EQ(qpu.op_count, 1UL);
    EXPECT_TRUE(std::isnan(qpu.get_value(0).re));
}

TEST_P(OtherGates, AnAngleOfNothingCountsForPprAndPhase) {
    qpu.phase(0.0, 0b010, 0, 0, 0);
    EXPECT_EQ(qpu.op_count, 1UL);
    qpu.ppr(0.0, 0b100, 0b001, 0, 0, 0);
    EXPECT_EQ(qpu.op_count, 2UL);
    EXPECT_EQ(qpu.classical_qubits, ~0b101UL);
}

TEST_P(OtherGates, AnEmptyPauliProductIsNotCounted) {
    qpu.ppr(30.0, 0, 0, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, ~0UL);
    qpu.ppr(30.0, 0b1000, 0, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, ~0b1000UL);
    EXPECT_EQ(qpu.pps(0b1000, 0), 0.0);
    EXPECT_EQ(qpu.op_count, 0UL);
}

// A root and RXZ also clear the bits of targets outside the register; Y and RZ do not.
TEST_P(OtherGates, TargetsOutsideTheRegister) {
    qpu.rootx(0b1000, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, ~0b1000UL);
    qpu.y(0b10000, 0, 0, 0);
    qpu.rz(30.0, 0b10000, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, ~0b1000UL);
    qpu.rxz(30.0, 30.0, 0b10000, 0, 0, 0);
    EXPECT_EQ(qpu.classical_qubits, ~0b11000UL);
    EXPECT_EQ(qpu.op_count, 0UL);
}

}  // namespace
