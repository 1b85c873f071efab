// The tableau of the filter before and after an operation that its first form cannot hold.
#include <memory>
#include <optional>

#include "clifford/tableau/clifford_support.h"
#include "clifford/tableau/tableau.h"

namespace {

using namespace Nimbrel::Testing;
using Gate = Tableau::Gate;

constexpr std::array gates{Gate::x, Gate::y, Gate::z, Gate::had, Gate::s, Gate::cnot, Gate::cz};

Rows rows_of(Tableau& tableau) {
    Rows rows;
    const auto add = [&](const Stabilizer& row) { rows.push_back(text_of(row)); };
    tableau.for_each_row(add, [&] { rows.emplace_back("-"); });
    return rows;
}

Rows rows_of(const StabilizerState& state) {
    Rows rows = texts_of(state.destabilizers);
    rows.emplace_back("-");
    for (const std::string& row : texts_of(state.stabilizers)) rows.push_back(row);
    return rows;
}

class ChangesOfForm : public DrawingTest {
  protected:
    void start(unsigned qubits) {
        tableau = std::make_unique<Tableau>(qubits);
        state = std::make_unique<StabilizerState>(qubits);
    }

    unsigned draw_qubit() { return static_cast<unsigned>(below(state->num_qubits)); }

    void apply(Gate gate, unsigned a, unsigned b) {
        tableau->apply(gate, a, b);
        apply_to_rows(*state, {gate, a, b});
    }

    /// A gate on two different qubits, if it has two.
    void draw_gate() {
        const unsigned a = draw_qubit();
        const unsigned b = draw_qubit();
        const Gate gate = gates.at(below(gates.size()));
        apply(gate == Gate::cnot && a == b ? Gate::had : gate, a, b);
    }

    void erase(unsigned qubit) { apply(Gate::cnot, qubit, qubit); }

    /// The outcome that the rows fix.
    std::optional<unsigned> fixed_outcome(unsigned qubit) const {
        const Stabilizer row = state->reduced_z(qubit);
        if (!row.is_identity() || (row.phase & 1) != 0) return std::nullopt;
        return row.phase / 2U;
    }

    void measure(unsigned qubit) {
        const std::optional<unsigned> expected = fixed_outcome(qubit);
        ASSERT_EQ(tableau->fixed_outcome(qubit), expected);
        const unsigned outcome = tableau->measure(qubit);
        if (expected) {
            ASSERT_EQ(outcome, *expected);
        } else {
            Stabilizer row = state->reduced_z(qubit);
            row.phase = static_cast<unsigned short>(2 * outcome);
            project(*state, row, qubit);
        }
    }

    void expect_same() {
        ASSERT_EQ(rows_of(*tableau), rows_of(*state));
        ASSERT_EQ(tableau->num_rows(), state->num_rows);
    }

    std::unique_ptr<Tableau> tableau;
    std::unique_ptr<StabilizerState> state;
};

constexpr unsigned widths[] = {1, 2, 63, 64, 65, 513};

TEST_F(ChangesOfForm, KeepTheRows) {
    for (const unsigned qubits : widths) {
        SCOPED_TRACE(qubits);
        start(qubits);
        for (unsigned i = 0; i < 4 * qubits; ++i) draw_gate();
        expect_same();
        erase(draw_qubit());
        expect_same();
        for (unsigned i = 0; i < 20; ++i) draw_gate();
        expect_same();
    }
}

TEST_F(ChangesOfForm, KeepProjectionsThatWait) {
    for (const unsigned qubits : widths) {
        SCOPED_TRACE(qubits);
        start(qubits);
        for (unsigned i = 0; i < 4 * qubits; ++i) draw_gate();
        for (unsigned i = 0; i < 5; ++i) measure(draw_qubit());
        erase(draw_qubit());
        expect_same();
    }
}

TEST_F(ChangesOfForm, LetMeasurementsAddRows) {
    unsigned grown = 0;
    for (const unsigned qubits : {1U, 2U, 3U, 4U, 63U, 64U, 65U}) {
        SCOPED_TRACE(qubits);
        for (int repeat = 0; repeat < 4; ++repeat) {
            start(qubits);
            for (unsigned i = 0; i < 3 * qubits; ++i) draw_gate();
            for (unsigned i = 0; i < 20; ++i) {
                erase(draw_qubit());
                draw_gate();
                measure(draw_qubit());
                expect_same();
                if (HasFatalFailure()) return;
            }
            if (state->num_rows > qubits) ++grown;
        }
    }
    EXPECT_GT(grown, 5U);
}

TEST_F(ChangesOfForm, KeepASwapOfAQubitWithItself) {
    for (const unsigned qubits : {1U, 3U, 65U}) {
        start(qubits);
        for (unsigned i = 0; i < 5 * qubits; ++i) draw_gate();
        const unsigned qubit = draw_qubit();
        tableau->swap(qubit, qubit);
        for (int i = 0; i < 3; ++i) state->cnot(qubit, qubit);
        expect_same();
    }
}

TEST_F(ChangesOfForm, AreNotNeededForAControlledZOnOneQubit) {
    start(2);
    apply(Gate::had, 0, 0);
    apply(Gate::cz, 0, 0);
    expect_same();
    EXPECT_TRUE(tableau->reset());  // only the first form keeps its memory
}

TEST_F(ChangesOfForm, EndWithANewRegister) {
    start(3);
    erase(1);
    EXPECT_FALSE(tableau->reset());
    expect_same();
}

/// A projection on an outcome that is fixed already adds the row that it has made of Z.
TEST_F(ChangesOfForm, ComeWithAProjectionOnAFixedOutcome) {
    for (const unsigned outcome : {0U, 1U}) {
        start(65);
        if (outcome == 1) apply(Gate::x, 64, 0);
        tableau->project(64, outcome);
        Stabilizer row = state->reduced_z(64);
        row.phase = static_cast<unsigned short>(2 * outcome);
        project(*state, row, 64);
        expect_same();
        EXPECT_EQ(tableau->num_rows(), 66U);
    }
}

TEST_F(ChangesOfForm, LetBothFormsDrawBothOutcomes) {
    start(64);
    unsigned ones = 0;
    for (unsigned round = 0; round < 10; ++round) {
        for (unsigned qubit = 0; qubit < 64; ++qubit) apply(Gate::had, qubit, 0);
        if (round == 5) erase(0);
        for (unsigned qubit = 1; qubit < 64; ++qubit) {
            measure(qubit);
            ones += fixed_outcome(qubit).value_or(0);
        }
        expect_same();
    }
    EXPECT_GT(ones, 200U);
    EXPECT_LT(ones, 430U);
}

}  // namespace
