// The tableau that is stored qubit by qubit beside the one that is stored row by row.
#include "clifford/tableau/qubit_tableau.h"

#include <memory>
#include <optional>

#include "clifford/tableau/clifford_support.h"
#include "clifford/tableau/gate_batch.h"

namespace {

using namespace Nimbrel::Testing;
using Kind = CliffordGate::Kind;

std::vector<Stabilizer> rows_of(QubitTableau& tableau,
                                void (QubitTableau::*copy)(unsigned, std::span<Stabilizer>)) {
    const unsigned qubits = tableau.num_qubits();
    std::vector<Stabilizer> rows(qubits, Stabilizer(qubits));
    for (unsigned first = 0; first < qubits; first += 64) {
        const unsigned count = std::min(64U, qubits - first);
        (tableau.*copy)(first, std::span(rows).subspan(first, count));
    }
    return rows;
}

void expect_rows(const std::vector<Stabilizer>& actual, const std::vector<Stabilizer>& expected) {
    for (std::size_t i = 0; i < expected.size(); ++i) {
        ASSERT_EQ(actual[i].phase, expected[i].phase) << "row " << i;
        ASSERT_EQ(actual[i].x.words, expected[i].x.words) << "row " << i;
        ASSERT_EQ(actual[i].z.words, expected[i].z.words) << "row " << i;
    }
}

/// Both forms after the same operations. The parameter tells whether wide vectors may be used.
class QubitTableaus : public DrawingTest, public testing::WithParamInterface<bool> {
  protected:
    void SetUp() override { use_wide_strings(GetParam()); }
    void TearDown() override { use_wide_strings(true); }

    void start(unsigned qubits) {
        tableau.emplace(qubits);
        state = std::make_unique<StabilizerState>(qubits);
    }

    unsigned long draw_qubit() { return below(state->num_qubits); }

    /// Another qubit than `qubit`. Requires: there are two.
    unsigned long draw_other(unsigned long qubit) {
        return (qubit + 1 + below(state->num_qubits - 1UL)) % state->num_qubits;
    }

    void gate_on_one(Kind kind, unsigned long qubit) {
        apply_to_rows(*state, {kind, static_cast<unsigned>(qubit)});
        switch (kind) {
            case Kind::x:
                return tableau->px(qubit);
            case Kind::y:
                return tableau->py(qubit);
            case Kind::z:
                return tableau->pz(qubit);
            case Kind::had:
                return tableau->had(qubit);
            default:
                return tableau->sgate(qubit);
        }
    }

    void swap(unsigned long a, unsigned long b) {
        tableau->swap(a, b);
        state->cnot(a, b);
        state->cnot(b, a);
        state->cnot(a, b);
    }

    void gate_on_two(unsigned long kind, unsigned long a, unsigned long b) {
        if (kind == 0) {
            tableau->cz(a, b);
            state->cz(a, b);
        } else if (kind == 1) {
            swap(a, b);
        } else {
            tableau->cnot(a, b);
            state->cnot(a, b);
        }
    }

    void draw_gate() {
        const unsigned long qubit = draw_qubit();
        if (state->num_qubits > 1 && below(2) == 0) {
            return gate_on_two(below(8), qubit, draw_other(qubit));
        }
        constexpr std::array kinds{Kind::x, Kind::y, Kind::z, Kind::had, Kind::had, Kind::s};
        gate_on_one(kinds.at(below(kinds.size())), qubit);
    }

    /// Compares a fixed outcome, or projects both on the same one.
    void measure(unsigned long qubit) {
        ASSERT_EQ(tableau->is_random(qubit), state->has_anticommuting_row(qubit));
        if (!tableau->is_random(qubit)) {
            const Stabilizer row = state->reduced_z(qubit);
            ASSERT_TRUE(row.is_identity());
            ASSERT_EQ(2 * tableau->fixed_outcome(qubit), row.phase);
            ++fixed;
            return;
        }
        const auto outcome = static_cast<unsigned>(below(2));
        tableau->project(qubit, outcome);
        project(*state, signed_z(state->num_qubits, qubit, outcome == 1), qubit);
        ++random;
    }

    void expect_same() {
        expect_rows(rows_of(*tableau, &QubitTableau::copy_generators), state->stabilizers);
        expect_rows(rows_of(*tableau, &QubitTableau::copy_destabilizers), state->destabilizers);
    }

    std::optional<QubitTableau> tableau;
    std::unique_ptr<StabilizerState> state;
    unsigned fixed = 0;
    unsigned random = 0;
};

TEST_P(QubitTableaus, BeginWithAllQubitsZero) {
    for (const unsigned qubits : {0U, 1U, 2U, 63U, 64U, 65U, 513U}) {
        start(qubits);
        expect_same();
    }
}

TEST_P(QubitTableaus, AgreeAfterEachOperation) {
    for (const unsigned qubits : {1U, 2U, 3U, 5U, 63U, 64U, 65U, 130U}) {
        SCOPED_TRACE(qubits);
        for (int repeat = 0; repeat < 3; ++repeat) {
            start(qubits);
            for (int step = 0; step < 60; ++step) {
                if (below(4) == 0) {
                    measure(draw_qubit());
                } else {
                    draw_gate();
                }
                expect_same();
                if (HasFatalFailure()) return;
            }
        }
    }
    EXPECT_GT(fixed, 50U);
    EXPECT_GT(random, 50U);
}

/// Rows that are read finish the waiting projections, so here they are read at the end only.
TEST_P(QubitTableaus, AgreeAfterManyOperations) {
    for (const unsigned qubits : {1U, 4U, 63U, 64U, 65U, 127U, 200U, 300U, 449U, 513U}) {
        SCOPED_TRACE(qubits);
        start(qubits);
        for (unsigned round = 0; round < 3; ++round) {
            for (unsigned i = 0; i < 6 * qubits; ++i) draw_gate();
            for (unsigned i = 0; i < qubits; ++i) measure(draw_qubit());
            if (HasFatalFailure()) return;
        }
        expect_same();
    }
    EXPECT_GT(fixed, 100U);
    EXPECT_GT(random, 100U);
}

/// The gates of one qubit among measurements, some of which do not end the wait of projections.
TEST_P(QubitTableaus, AgreeWithFewGatesAmongMeasurements) {
    for (const unsigned qubits : {100U, 200U, 513U, 800U}) {
        SCOPED_TRACE(qubits);
        start(qubits);
        for (unsigned i = 0; i < 4 * qubits; ++i) draw_gate();
        for (unsigned i = 0; i < qubits; ++i) {
            measure(draw_qubit());
            const unsigned long what = below(4);
            if (what == 0) gate_on_one(Kind::had, draw_qubit());
            if (what == 1) gate_on_one(below(2) == 0 ? Kind::x : Kind::z, draw_qubit());
            if (what == 2) swap(i, draw_other(i));
            if (below(20) == 0) draw_gate();
            if (HasFatalFailure()) return;
        }
        expect_same();
    }
}

/// The second measurement of a qubit multiplies by a row that waits to be Z on that qubit.
TEST_P(QubitTableaus, AgreeWithMeasurementsRightAfterAHadamard) {
    for (const unsigned qubits : {65U, 100U, 200U, 400U}) {
        for (int repeat = 0; repeat < 10; ++repeat) {
            start(qubits);
            for (unsigned i = 0; i < 4 * qubits; ++i) draw_gate();
            for (unsigned i = 0; i < 40; ++i) {
                const unsigned long qubit = below(8);
                measure(qubit);
                gate_on_one(Kind::had, qubit);
                if (HasFatalFailure()) return;
            }
            expect_same();
        }
    }
}

TEST_P(QubitTableaus, KeepNoTraceOfWhatWasBeforeAReset) {
    for (const unsigned qubits : {1U, 64U, 200U}) {
        start(qubits);
        for (unsigned i = 0; i < 4 * qubits; ++i) draw_gate();
        for (unsigned i = 0; i < qubits; ++i) measure(i);
        tableau->reset();
        state = std::make_unique<StabilizerState>(qubits);
        expect_same();
        for (unsigned i = 0; i < 4 * qubits; ++i) draw_gate();
        measure(0);
        expect_same();
    }
}

/// A controlled Z that keeps the sign of Y X differs from one that does not in the outcome.
TEST_P(QubitTableaus, HaveTheOutcomesOfAControlledZWithoutSigns) {
    start(2);
    for (const unsigned long qubit : {0UL, 1UL}) gate_on_one(Kind::had, qubit);
    gate_on_one(Kind::s, 0);
    gate_on_two(0, 0, 1);
    expect_same();
    for (unsigned i = 0; i < 500; ++i) {
        gate_on_two(below(2), 0, 1);
        gate_on_one(below(2) == 0 ? Kind::had : Kind::s, draw_qubit());
        measure(draw_qubit());
        expect_same();
    }
    EXPECT_GT(fixed, 50U);
}

INSTANTIATE_TEST_SUITE_P(Widths, QubitTableaus, testing::Bool(),
                         [](const auto& wide) { return wide.param ? "Wide" : "Narrow"; });

}  // namespace
