#include <cmath>
#include <limits>

#include "dense/blocks/kernels/pair_gates.h"
#include "dense/blocks/kernels/register_run.h"
#include "dense/blocks/kernels/width.h"

namespace {

using namespace Nimbrel::Testing;
using Nimbrel::complex_t;
using Nimbrel::GateKind;
using Nimbrel::GateMatrix;
using Nimbrel::RegisterGate;
using Nimbrel::RegisterRun;
using Nimbrel::SlotGate;

constexpr double infinity = std::numeric_limits<double>::infinity();

/// A gate with the matrix that it points to.
struct OwnedGate {
    GateMatrix matrix;
    SlotGate gate;
};

bool same_bits_or_nan(double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || same_bits(a, b);
}

class RegisterRuns : public testing::Test {
  protected:
    void SetUp() override {
        if (!Nimbrel::wide_kernels_in_use) GTEST_SKIP() << "the narrow kernels have no such runs";
    }

    OwnedGate draw_gate(unsigned long qubits) {
        const Matrices matrices(draws);
        OwnedGate drawn{.matrix = draw_matrix(matrices), .gate = {}};
        const unsigned long kinds = 5;
        switch (draws.below(kinds)) {
            case 0:
                drawn.matrix.kind = GateKind::exchange;
                break;
            case 1:
                drawn.matrix.kind = GateKind::hadamard;
                break;
            case 2:
                drawn.matrix.kind = draws.one_in(2) ? GateKind::phase : GateKind::sign_flip;
                break;
            default:
                break;
        }
        drawn.gate.kind = drawn.matrix.kind;
        const bool pairs =
            drawn.gate.kind != GateKind::phase && drawn.gate.kind != GateKind::sign_flip;
        if (pairs) drawn.gate.target = 1UL << draws.below(qubits);
        if (!pairs || draws.one_in(3)) {
            const unsigned long mask = draws.mask(qubits) & draws.mask(qubits);
            drawn.gate.controls = {.mask = mask,
                                   .pattern = mask & draws.mask(qubits) & ~drawn.gate.target};
        }
        return drawn;
    }

    GateMatrix draw_matrix(const Matrices& matrices) {
        switch (draws.below(4)) {
            case 0:
                return GateMatrix::complex(matrices.complex_entries);
            case 1:
                return GateMatrix::complex(matrices.diagonal_entries);
            case 2:
                return GateMatrix::complex(matrices.crossed_entries);
            default:
                return GateMatrix::real(matrices.real_entries);
        }
    }

    /// As many of drawn gates as one run can have.
    std::vector<OwnedGate> draw_gates(unsigned long qubits) {
        std::vector<OwnedGate> gates;
        RegisterRun run;
        const unsigned long most = 1 + draws.below(12);
        while (gates.size() < most) {
            gates.push_back(draw_gate(qubits));
            if (!run.add(gates.back().gate)) gates.pop_back();
        }
        for (OwnedGate& owned : gates) owned.gate.matrix = &owned.matrix.entries;
        return gates;
    }

    static void run_together(const std::vector<OwnedGate>& gates, State& state) {
        RegisterRun run;
        for (const OwnedGate& owned : gates) run.add(owned.gate);
        run.complete(state.size());
        std::vector<RegisterGate> prepared;
        bool keep_zeros = true;
        for (const OwnedGate& owned : gates) {
            ASSERT_TRUE(Nimbrel::suits_registers(owned.gate, state.size()));
            prepared.push_back(Nimbrel::prepare_for_registers(owned.gate, run));
            keep_zeros = keep_zeros && prepared.back().keeps_zeros;
        }
        std::vector<const RegisterGate*> list;
        list.reserve(prepared.size() + 1);
        for (const RegisterGate& gate : prepared) list.push_back(&gate);
        list.push_back(nullptr);
        Nimbrel::RegisterGroups groups{
            .slots = state.data(), .n = state.size(), .distances = {}, .skips_zeros = keep_zeros};
        std::ranges::copy(run.distances(), groups.distances);
        Nimbrel::run_in_registers(groups, list.data(), prepared.size());
    }

    /// Compares a run with its gates one by one.
    void expect_same(const std::vector<OwnedGate>& gates, const State& before) {
        State expected = before;
        for (const OwnedGate& owned : gates) {
            Nimbrel::apply_gate(owned.gate, expected.data(), nullptr, expected.size());
        }
        State actual = before;
        ASSERT_NO_FATAL_FAILURE(run_together(gates, actual));
        for (std::size_t i = 0; i < expected.size(); ++i) {
            ASSERT_TRUE(same_bits_or_nan(actual[i].re, expected[i].re) &&
                        same_bits_or_nan(actual[i].im, expected[i].im))
                << gates.size() << " gates, " << before.size() << " slots, amplitude " << i << ": ("
                << actual[i].re << ", " << actual[i].im << ") and not (" << expected[i].re << ", "
                << expected[i].im << ")";
        }
    }

    template <typename MakeState>
    void expect_same_on(MakeState&& make_state) {
        for (unsigned long qubits = 5; qubits < 10; ++qubits) {
            for (int round = 0; round < 200; ++round) {
                const State before = make_state(qubits);
                ASSERT_NO_FATAL_FAILURE(expect_same(draw_gates(qubits), before));
            }
        }
    }

    Draws draws{seed_of_this_test()};
};

TEST_F(RegisterRuns, OnAmplitudesWithoutZeros) {
    expect_same_on([&](unsigned long qubits) { return random_state(qubits, draws.bits()); });
}

TEST_F(RegisterRuns, OnAmplitudesWithZeros) {
    expect_same_on([&](unsigned long qubits) {
        State state(1UL << qubits);
        for (complex_t& term : state) term = draws.amplitude();
        return state;
    });
}

TEST_F(RegisterRuns, OnRealAmplitudes) {
    expect_same_on([&](unsigned long qubits) {
        State state = random_state(qubits, draws.bits());
        for (complex_t& term : state) term.im = 0.0;
        return state;
    });
}

TEST_F(RegisterRuns, OnFewAmplitudes) {
    expect_same_on([&](unsigned long qubits) {
        State state(1UL << qubits, complex_t{0.0, 0.0});
        state[draws.below(state.size())] = draws.amplitude();
        if (draws.one_in(4)) state[draws.below(state.size())] = {-0.0, -0.0};
        return state;
    });
}

TEST_F(RegisterRuns, WithAnInfinity) {
    expect_same_on([&](unsigned long qubits) {
        State state = random_state(qubits, draws.bits());
        state[draws.below(state.size())].re = draws.one_in(2) ? infinity : -infinity;
        return state;
    });
}

TEST_F(RegisterRuns, OnAmplitudesWhoseProductsUnderflow) {
    expect_same_on([&](unsigned long qubits) {
        State state = random_state(qubits, draws.bits());
        for (complex_t& term : state) term = {term.re * 0x1p-1040, term.im * 0x1p-1040};
        return state;
    });
}

TEST_F(RegisterRuns, RefuseAFourthBitAboveTheLanes) {
    RegisterRun run;
    for (const unsigned long target : {8UL, 1UL, 64UL, 2UL, 16UL, 8UL}) {
        EXPECT_TRUE(run.add({.kind = GateKind::hadamard, .target = target})) << target;
    }
    EXPECT_FALSE(run.add({.kind = GateKind::hadamard, .target = 4}));
    EXPECT_EQ(run.distances()[0], 8);
    EXPECT_EQ(run.distances()[1], 16);
    EXPECT_EQ(run.distances()[2], 64);
}

TEST_F(RegisterRuns, DoNotSuitAGateThatItsOwnControlStops) {
    const SlotGate gate{
        .kind = GateKind::exchange, .target = 4, .controls = {.mask = 4, .pattern = 4}};
    EXPECT_FALSE(Nimbrel::suits_registers(gate, 32));
}

}  // namespace
