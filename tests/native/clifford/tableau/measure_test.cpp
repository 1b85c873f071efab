// Measurement: fixed and drawn outcomes, the bit that is drawn, and the tableau afterwards.
#include <memory_resource>

#include "clifford/tableau/clifford_support.h"

namespace {

using namespace Nimbrel::Testing;

/// The result of the next measurement with a drawn outcome.
unsigned next_drawn(const StabilizerState& state) {
    std::mt19937_64 copy = state.rng;
    return 2 + static_cast<unsigned>(copy() >> 1 & 1);
}

/// Seeds the generator so that the next draw gives this outcome.
void seed_for_outcome(StabilizerState& state, unsigned outcome) {
    unsigned long seed = 0;
    do {
        state.rng.seed(++seed);
    } while (next_drawn(state) != 2 + outcome);
}

TEST(Measurement, OfAFreshQubitIsAFixedZero) {
    StabilizerState state(3);
    const Tables before = tables_of(state);
    const std::mt19937_64 undrawn = state.rng;
    for (const unsigned long qubit : {0UL, 1UL, 2UL}) measure(state, qubit, 0);
    EXPECT_EQ(state.rng, undrawn);
    EXPECT_EQ(tables_of(state), before);
}

TEST(Measurement, AfterXIsAFixedOne) {
    StabilizerState state(2);
    state.px(1);
    const std::mt19937_64 undrawn = state.rng;
    measure(state, 1, 1);
    measure(state, 0, 0);
    EXPECT_EQ(state.rng, undrawn);
    EXPECT_EQ(tables_of(state), (Tables{{"+ZI", "-IZ"}, {"+XI", "+IX"}}));
}

TEST(Measurement, AfterHadamardIsDrawnAndThenFixed) {
    for (const unsigned outcome : {0U, 1U}) {
        StabilizerState state(2);
        state.had(0);
        seed_for_outcome(state, outcome);
        std::mt19937_64 drawn_once = state.rng;
        drawn_once();
        measure(state, 0, 2 + outcome);
        EXPECT_EQ(state.rng, drawn_once);
        EXPECT_EQ(tables_of(state),
                  (Tables{{outcome == 0 ? "+ZI" : "-ZI", "+IZ"}, {"+XI", "+IX"}}));
        for (int repeat = 0; repeat < 3; ++repeat) measure(state, 0, outcome);
        EXPECT_EQ(state.rng, drawn_once);
    }
}

/// Each drawn outcome is bit 1 of one output.
TEST(Measurement, TakesBitOneOfOneOutput) {
    StabilizerState state(1);
    state.rng.seed(99);
    std::mt19937_64 expected(99);
    unsigned unlike_bit_zero = 0;
    for (int repeat = 0; repeat < 64; ++repeat) {
        state.had(0);
        const unsigned long output = expected();
        measure(state, 0, 2 + static_cast<unsigned>(output >> 1 & 1));
        unlike_bit_zero += (output & 1) != (output >> 1 & 1) ? 1 : 0;
    }
    EXPECT_GT(unlike_bit_zero, 0U);
    EXPECT_EQ(state.rng, expected);
}

/// Generators XX and ZZ, destabilizers ZI and IX.
TEST(Measurement, OfABellPairFixesTheOtherQubit) {
    for (const unsigned outcome : {0U, 1U}) {
        for (const unsigned long first : {0UL, 1UL}) {
            StabilizerState state(2);
            state.had(0);
            state.cnot(0, 1);
            ASSERT_EQ(tables_of(state), (Tables{{"+XX", "+ZZ"}, {"+ZI", "+IX"}}));
            seed_for_outcome(state, outcome);
            measure(state, first, 2 + outcome);
            const std::mt19937_64 after = state.rng;
            measure(state, 1 - first, outcome);
            measure(state, first, outcome);
            EXPECT_EQ(state.rng, after);
        }
    }
}

TEST(Measurement, MakesTheOldGeneratorTheDestabilizer) {
    StabilizerState state(2);
    set_tables(state, {{"+XX", "+ZZ"}, {"+ZI", "+IX"}});
    seed_for_outcome(state, 1);
    measure(state, 1, 3);
    // The destabilizer of row 1 has X on the measured qubit: IX times XX.
    EXPECT_EQ(tables_of(state), (Tables{{"-IZ", "+ZZ"}, {"+XX", "+XI"}}));
}

TEST(Measurement, MultipliesEveryRowThatAnticommutes) {
    StabilizerState state(3);
    set_tables(state, {{"+XXX", "+XZI", "-YIZ"}, {"+ZII", "-YXI", "+IIX"}});
    seed_for_outcome(state, 0);
    measure(state, 0, 2);
    // Each row is multiplied from the right by the old +XXX: destabilizer -YXI, then +XZI and -YIZ.
    EXPECT_EQ(tables_of(state), (Tables{{"+ZII", "+iIYX", "-ZXY"}, {"+XXX", "+iZIX", "+IIX"}}));
}

TEST(Measurement, OfAFixedProductTakesItsSign) {
    StabilizerState state(2);
    // Z on qubit 1 is -ZI times +ZZ, so both signs count.
    set_tables(state, {{"-ZI", "+ZZ"}, {"+XX", "+IX"}});
    measure(state, 0, 1);
    measure(state, 1, 1);
    set_tables(state, {{"-ZI", "-ZZ"}, {"+XX", "+IX"}});
    measure(state, 0, 1);
    measure(state, 1, 0);
}

/// A measurement tests all generators for an X, also those past `num_rows`.
TEST(Measurement, TestsRowsPastNumRowsForAnX) {
    StabilizerState state(2);
    state.had(1);
    state.num_rows = 1;
    seed_for_outcome(state, 1);
    measure(state, 1, 3);
}

/// With wrong destabilizers the product can be the identity with an odd phase. Then the outcome is
/// drawn.
TEST(Measurement, OfARowThatIsLeftWithAnOddPhaseIsDrawn) {
    StabilizerState state(1);
    set_tables(state, {{"+iZ"}, {"+X"}});
    seed_for_outcome(state, 1);
    std::mt19937_64 drawn_once = state.rng;
    drawn_once();
    measure(state, 0, 3);
    EXPECT_EQ(state.rng, drawn_once);
    // The row, now -I, times +iZ is added as a generator; the elimination multiplies it by +iZ to
    // +I.
    EXPECT_EQ(tables_of(state), (Tables{{"+iZ", "+I"}, {"+X", "+I"}}));
}

TEST(Measurement, OfRowsOfDifferentLengthIsRefusedAndChangesNothing) {
    StabilizerState state(2);
    state.stabilizers[1] = row_of("+IZI");
    const Tables before = tables_of(state);
    const std::mt19937_64 undrawn = state.rng;
    EXPECT_FAILURE(state.measure_qubit<Clifford{3}>(1), "Incompatible stabilizer lengths");
    EXPECT_EQ(tables_of(state), before);
    EXPECT_EQ(state.rng, undrawn);
    measure(state, 0, 0);
}

TEST(Measurement, ReachesTheLastQubitOfAWideRegister) {
    StabilizerState state(130);
    state.px(129);
    measure(state, 129, 1);
    measure(state, 128, 0);
    state.had(64);
    state.cnot(64, 129);
    seed_for_outcome(state, 1);
    measure(state, 64, 3);
    measure(state, 129, 0);
}

TEST(Measurement, OfAQubitThatNoRowSettlesIsDrawnAndThenFixed) {
    for (const unsigned outcome : {0U, 1U}) {
        StabilizerState state(2);
        set_tables(state, {{"+ZI"}, {"+XI"}});
        seed_for_outcome(state, outcome);
        measure(state, 1, 2 + outcome);
        EXPECT_EQ(tables_of(state),
                  (Tables{{"+ZI", outcome == 0 ? "+IZ" : "-IZ"}, {"+XI", "+IX"}}));
        EXPECT_EQ(state.num_rows, 2U);
        measure(state, 1, outcome);
    }
}

TEST(Measurement, InATableauOfNoRows) {
    StabilizerState state(2);
    set_tables(state, {});
    seed_for_outcome(state, 1);
    measure(state, 0, 3);
    EXPECT_EQ(tables_of(state), (Tables{{"-ZI"}, {"+XI"}}));
    measure(state, 0, 1);
}

/// The projection uses the row after its products, with the drawn sign. The generator that is added
/// then has that sign times the signs of the products: here the opposite of the outcome.
TEST(Measurement, KeepsTheRowThatItsProductsLeft) {
    StabilizerState state(2);
    set_tables(state, {{"-ZI"}, {"+XX"}});
    seed_for_outcome(state, 0);
    measure(state, 1, 2);
    EXPECT_EQ(tables_of(state), (Tables{{"-ZI", "-IZ"}, {"+XI", "+IX"}}));
    measure(state, 1, 1);
}

/// Counts the allocations of copied rows and local rows.
class CountingMemory : public std::pmr::memory_resource {
  public:
    CountingMemory() : before_(std::pmr::set_default_resource(this)) {}
    ~CountingMemory() override { std::pmr::set_default_resource(before_); }
    CountingMemory(const CountingMemory&) = delete;
    CountingMemory& operator=(const CountingMemory&) = delete;

    unsigned requests = 0;

  private:
    void* do_allocate(std::size_t bytes, std::size_t alignment) override {
        ++requests;
        return before_->allocate(bytes, alignment);
    }
    void do_deallocate(void* memory, std::size_t bytes, std::size_t alignment) override {
        before_->deallocate(memory, bytes, alignment);
    }
    bool do_is_equal(const memory_resource& other) const noexcept override {
        return this == &other;
    }

    std::pmr::memory_resource* before_;
};

/// One local row has two parts, x and z.
TEST(Measurement, AsksForTheMemoryOfOneRow) {
    StabilizerState state(100);
    for (unsigned long qubit = 1; qubit < 100; ++qubit) {
        state.had(qubit);
        state.cnot(qubit, 0);
    }
    const CountingMemory memory;
    state.measure_qubit<Clifford{3}>(7);
    EXPECT_EQ(memory.requests, 2U);
    state.measure_qubit<Clifford{3}>(7);
    EXPECT_EQ(memory.requests, 4U);
}

}  // namespace
