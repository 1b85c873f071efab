// The tableau after construction, the seed of its random generator, and a tableau without rows.
#include <chrono>

#include "clifford/tableau/clifford_support.h"
#include "support/random.h"

namespace {

using namespace Nimbrel::Testing;

TEST(Tableau, StartsWithEveryQubitZero) {
    const StabilizerState state(3);
    EXPECT_EQ(state.num_qubits, 3U);
    EXPECT_EQ(state.num_rows, 3U);
    EXPECT_EQ(tables_of(state), (Tables{{"+ZII", "+IZI", "+IIZ"}, {"+XII", "+IXI", "+IIX"}}));
    EXPECT_EQ(text_of(state.scratch), "+III");
}

TEST(Tableau, OfAnyWidthHasOneLetterInARow) {
    for (const unsigned qubits : {1U, 63U, 64U, 65U, 130U}) {
        const StabilizerState state(qubits);
        ASSERT_EQ(state.num_rows, qubits);
        ASSERT_EQ(state.stabilizers.size(), qubits);
        ASSERT_EQ(state.destabilizers.size(), qubits);
        for (unsigned qubit = 0; qubit < qubits; ++qubit) {
            EXPECT_EQ(text_of(state.stabilizers[qubit]), one_letter_row(qubits, qubit, 'Z'));
            EXPECT_EQ(text_of(state.destabilizers[qubit]), one_letter_row(qubits, qubit, 'X'));
        }
    }
}

TEST(Tableau, OfNoQubitsHasNoRows) {
    const StabilizerState state(0);
    EXPECT_EQ(state.num_rows, 0U);
    EXPECT_EQ(tables_of(state), Tables{});
    EXPECT_EQ(state.scratch.length, 0U);
}

/// Whether the generator was seeded with one of these numbers and has drawn nothing.
bool seeded_between(const std::mt19937_64& generator, unsigned long first, unsigned long last) {
    for (unsigned long seed = first; seed <= last; ++seed) {
        if (generator == std::mt19937_64(seed)) return true;
    }
    return false;
}

unsigned long clock_ticks() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<unsigned long>(now.count());
}

/// The seed of the process-wide generator has no effect.
TEST(Tableau, SeedsItsGeneratorFromTheClock) {
    for (;;) {
        set_random_seed(5);
        const unsigned long before = clock_ticks();
        const StabilizerState state(1);
        const unsigned long after = clock_ticks();
        if (after - before > 100000) continue;  // the thread was interrupted: too many seeds to try
        EXPECT_TRUE(seeded_between(state.rng, before, after));
        return;
    }
}

/// Rows that every gate would change.
TEST(Tableau, OfNoRowsIsLeftAloneByEveryGate) {
    StabilizerState state(2);
    state.num_rows = 0;
    const Tables before{{"+YX", "-XY"}, {"+ZY", "-YZ"}};
    set_tables(state, before);
    state.num_rows = 0;
    state.px(0);
    state.py(0);
    state.pz(0);
    state.had(0);
    state.sgate(0);
    state.cnot(0, 1);
    state.cz(0, 1);
    EXPECT_EQ(tables_of(state), before);
    set_tables(state, {});
    state.had(1);
    state.cnot(1, 0);
    EXPECT_EQ(tables_of(state), Tables{});
}

TEST(Tableau, GatesChangeTheFirstNumRowsRows) {
    StabilizerState state(2);
    state.num_rows = 1;
    state.had(0);
    state.had(1);
    EXPECT_EQ(tables_of(state), (Tables{{"+XI", "+IZ"}, {"+ZI", "+IX"}}));
}

}  // namespace
