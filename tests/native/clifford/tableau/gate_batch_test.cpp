// Gates that a batch applies together, compared with the same gates applied one by one.
#include "clifford/tableau/gate_batch.h"

#include <memory>

#include "clifford/tableau/clifford_support.h"

namespace {

using namespace Nimbrel::Testing;
using Kind = CliffordGate::Kind;

constexpr std::array kinds{Kind::x, Kind::y, Kind::z, Kind::had, Kind::s, Kind::cnot, Kind::cz};

using Gates = std::vector<CliffordGate>;

void run(StabilizerState& state, const Gates& gates) {
    GateBatch batch;
    for (const CliffordGate& gate : gates) batch.add(gate);
    batch.run(state);
}

testing::AssertionResult rows_agree(const std::vector<Stabilizer>& actual,
                                    const std::vector<Stabilizer>& expected, const char* table) {
    if (actual.size() != expected.size())
        return testing::AssertionFailure() << "sizes of " << table;
    for (std::size_t i = 0; i < actual.size(); ++i) {
        const Stabilizer& a = actual[i];
        const Stabilizer& b = expected[i];
        if (a.phase == b.phase && a.x.words == b.x.words && a.z.words == b.z.words) continue;
        return testing::AssertionFailure() << "row " << i << " of the " << table << ": "
                                           << text_of(a) << " and should be " << text_of(b);
    }
    return testing::AssertionSuccess();
}

void expect_same(const StabilizerState& actual, const StabilizerState& expected) {
    EXPECT_TRUE(rows_agree(actual.stabilizers, expected.stabilizers, "stabilizers"));
    EXPECT_TRUE(rows_agree(actual.destabilizers, expected.destabilizers, "destabilizers"));
}

class Batches : public DrawingTest {
  protected:
    /// Sets both tableaus to the same random rows with phases 0 to 3.
    void draw_states(unsigned qubits, unsigned rows) {
        together = std::make_unique<StabilizerState>(qubits);
        one_by_one = std::make_unique<StabilizerState>(qubits);
        const auto draw_rows = [&] {
            std::vector<Stabilizer> table(rows, Stabilizer(qubits));
            for (Stabilizer& row : table) draw(row);
            return table;
        };
        together->stabilizers = draw_rows();
        together->destabilizers = draw_rows();
        one_by_one->stabilizers = together->stabilizers;
        one_by_one->destabilizers = together->destabilizers;
        together->num_rows = one_by_one->num_rows = rows;
    }

    void expect_agreement(const Gates& gates) {
        run(*together, gates);
        for (const CliffordGate& gate : gates) apply_to_rows(*one_by_one, gate);
        expect_same(*together, *one_by_one);
    }

    CliffordGate draw_gate(unsigned qubits) {
        const auto qubit = [&] { return static_cast<unsigned>(below(qubits)); };
        return {kinds.at(below(kinds.size())), qubit(), qubit()};
    }

    Gates draw_gates(std::size_t count, unsigned qubits) {
        Gates gates(count);
        for (CliffordGate& gate : gates) gate = draw_gate(qubits);
        return gates;
    }

    std::unique_ptr<StabilizerState> together;
    std::unique_ptr<StabilizerState> one_by_one;

  private:
    void draw(Stabilizer& row) {
        row.phase = static_cast<unsigned short>(below(4));
        for (PauliBits* bits : {&row.x, &row.z}) {
            for (unsigned long& word : bits->words) word = draws();
            if (bits->tail_mask != 0) bits->words.back() &= bits->tail_mask;
        }
    }
};

/// The batch transposes rows from six gates for each word that they use; tests both sides of that.
TEST_F(Batches, OfAnyNumberOnRegistersOfAnyWidth) {
    for (const unsigned qubits : {1U, 2U, 3U, 63U, 64U, 65U, 128U, 129U, 600U}) {
        const std::size_t words = (qubits + 63) / 64;
        for (const std::size_t count : {1UL, 5UL, 6UL * words, 6UL * words + 1, 20UL * words}) {
            draw_states(qubits, qubits);
            expect_agreement(draw_gates(count, qubits));
        }
    }
}

TEST_F(Batches, OfEachKindAlone) {
    for (const Kind kind : kinds) {
        for (const std::size_t count : {6UL, 7UL, 40UL}) {
            draw_states(5, 5);
            Gates gates = draw_gates(count, 5);
            for (CliffordGate& gate : gates) gate.kind = kind;
            expect_agreement(gates);
        }
    }
}

/// A block has 256 rows, 128 of each table.
TEST_F(Batches, OnAnyNumberOfRows) {
    for (const unsigned rows : {0U, 1U, 31U, 32U, 33U, 127U, 128U, 129U, 255U, 256U, 257U, 300U}) {
        draw_states(4, rows);
        expect_agreement(draw_gates(50, 4));
        EXPECT_EQ(together->stabilizers.size(), rows);
    }
}

TEST_F(Batches, OnPairsInOneWordAndAcrossWords) {
    const std::pair<unsigned, unsigned> pairs[] = {{0, 1},    {1, 0},    {63, 64},   {64, 63},
                                                   {0, 199},  {199, 0},  {130, 131}, {5, 69},
                                                   {69, 133}, {133, 69}, {127, 128}, {191, 192}};
    for (const Kind kind : {Kind::cnot, Kind::cz}) {
        Gates gates;
        for (const auto& [a, b] : pairs) gates.push_back({kind, a, b});
        for (int repeat = 0; repeat < 2;
             ++repeat) {  // 12 gates on four words run on rows, 36 on columns
            draw_states(200, 60);
            expect_agreement(gates);
            const Gates once = gates;
            for (int copy = 0; copy < 2; ++copy)
                gates.insert(gates.end(), once.begin(), once.end());
        }
    }
}

TEST_F(Batches, OfControlledGatesOnOneQubitTwice) {
    for (const Kind kind : {Kind::cnot, Kind::cz}) {
        for (const std::size_t count : {1UL, 5UL, 30UL}) {
            draw_states(70, 70);
            Gates gates;
            for (std::size_t i = 0; i < count; ++i) {
                const auto qubit = static_cast<unsigned>(below(70));
                gates.push_back({kind, qubit, qubit});
                gates.push_back({Kind::had, qubit});
            }
            expect_agreement(gates);
        }
    }
}

/// The gates use words 3 and 7 of ten.
TEST_F(Batches, LeaveTheWordsThatNoGateTouches) {
    draw_states(600, 140);
    const std::vector<Stabilizer> before = together->stabilizers;
    Gates gates;
    for (int i = 0; i < 100; ++i) {
        const auto qubit = [&] {
            return static_cast<unsigned>((below(2) == 0 ? 3 : 7) * 64 + below(64));
        };
        gates.push_back({kinds.at(below(kinds.size())), qubit(), qubit()});
    }
    expect_agreement(gates);
    for (std::size_t row = 0; row < before.size(); ++row) {
        for (const std::size_t word : {0UL, 1UL, 2UL, 4UL, 5UL, 6UL, 8UL, 9UL}) {
            ASSERT_EQ(together->stabilizers[row].x.words[word], before[row].x.words[word]);
            ASSERT_EQ(together->stabilizers[row].z.words[word], before[row].z.words[word]);
        }
    }
}

/// The unused second qubit of a single-qubit gate must not select a word.
TEST_F(Batches, OfOneQubitGatesOnALastWord) {
    for (const std::size_t count : {3UL, 6UL, 7UL, 100UL}) {
        draw_states(150, 150);
        Gates gates;
        for (std::size_t i = 0; i < count; ++i) {
            const auto qubit = static_cast<unsigned>(128 + below(22));
            gates.push_back({kinds.at(below(5)), qubit});
        }
        expect_agreement(gates);
    }
}

TEST_F(Batches, KeepTheBitsAboveTheLastQubitZero) {
    draw_states(70, 70);
    expect_agreement(draw_gates(200, 70));
    for (const Stabilizer& row : together->destabilizers) {
        ASSERT_EQ(row.x.words.back() >> 6, 0UL);
        ASSERT_EQ(row.z.words.back() >> 6, 0UL);
    }
}

/// The words of a row that a projection added are not in the arena of the other rows.
TEST_F(Batches, ReachARowThatWasAdded) {
    draw_states(3, 0);
    for (StabilizerState* state : {together.get(), one_by_one.get()}) {
        set_tables(*state, {{"+XXI", "+ZZI"}, {"+ZII", "+IXI"}});
        project(*state, signed_z(3, 2, true), 2);
    }
    expect_agreement(draw_gates(60, 3));
}

TEST_F(Batches, ManyTimesWithOneBatch) {
    draw_states(100, 100);
    GateBatch batch;
    for (int repeat = 0; repeat < 30; ++repeat) {
        const std::size_t count = below(40);
        for (std::size_t i = 0; i < count; ++i) {
            const CliffordGate gate = draw_gate(100);
            batch.add(gate);
            apply_to_rows(*one_by_one, gate);
        }
        batch.run(*together);
        expect_same(*together, *one_by_one);
    }
}

TEST(GateBatch, ActsInTheOrderOfItsGates) {
    StabilizerState state(1);
    run(state, {{Kind::had, 0}, {Kind::s, 0}});
    EXPECT_EQ(tables_of(state), (Tables{{"+Y"}, {"+Z"}}));
    const Gates twenty(20, {Kind::s, 0});
    run(state, twenty);  // no change: S has order 4
    EXPECT_EQ(tables_of(state), (Tables{{"+Y"}, {"+Z"}}));
    Gates gates(8, {Kind::s, 0});
    gates.push_back({Kind::had, 0});
    gates.push_back({Kind::s, 0});
    run(state, gates);  // H takes Y to -Y and Z to X, then S takes them to X and Y
    EXPECT_EQ(tables_of(state), (Tables{{"+X"}, {"+Y"}}));
}

TEST(GateBatch, RunsEachGateOnce) {
    for (const int count : {1, 31}) {
        StabilizerState state(1);
        GateBatch batch;
        for (int i = 0; i < count; ++i) batch.add({Kind::had, 0});
        EXPECT_EQ(tables_of(state), (Tables{{"+Z"}, {"+X"}}));
        batch.run(state);
        EXPECT_EQ(tables_of(state), (Tables{{"+X"}, {"+Z"}}));
        batch.run(state);
        EXPECT_EQ(tables_of(state), (Tables{{"+X"}, {"+Z"}}));
    }
}

TEST(GateBatch, ForgetsWhatIsCleared) {
    StabilizerState state(1);
    GateBatch batch;
    batch.add({Kind::had, 0});
    batch.clear();
    batch.run(state);
    EXPECT_EQ(tables_of(state), (Tables{{"+Z"}, {"+X"}}));
    batch.add({Kind::x, 0});
    batch.run(state);
    EXPECT_EQ(tables_of(state), (Tables{{"-Z"}, {"+X"}}));
}

TEST(GateBatch, IsFullAtSomePointAndEmptyAfterARun) {
    StabilizerState state(2);
    GateBatch batch;
    EXPECT_FALSE(batch.is_full());
    unsigned long count = 0;
    while (!batch.is_full()) {
        batch.add({Kind::had, 0});
        ++count;
    }
    batch.run(state);
    EXPECT_FALSE(batch.is_full());
    const Tables turned{{"+XI", "+IZ"}, {"+ZI", "+IX"}};
    const Tables fresh{{"+ZI", "+IZ"}, {"+XI", "+IX"}};
    EXPECT_EQ(tables_of(state), count % 2 == 0 ? fresh : turned);
}

TEST(GateBatch, OfNothingNeedsNoQubits) {
    StabilizerState state(0);
    GateBatch batch;
    batch.run(state);
    EXPECT_EQ(tables_of(state), Tables{});
}

}  // namespace
