// Projection on a signed Z that anticommutes with a generator, or whose outcome is fixed.
#include "clifford/tableau/clifford_support.h"

namespace {

using namespace Nimbrel::Testing;

constexpr const char* orthogonal = "Cannot project onto orthogonal state";

TEST(Projection, OfAFreshQubitOnItsOwnValueChangesNothing) {
    StabilizerState state(2);
    const Tables before = tables_of(state);
    project(state, signed_z(2, 1, false), 1);
    EXPECT_EQ(tables_of(state), before);
    EXPECT_EQ(state.num_rows, 2U);
    state.px(0);
    project(state, signed_z(2, 0, true), 0);
    EXPECT_EQ(tables_of(state), (Tables{{"-ZI", "+IZ"}, {"+XI", "+IX"}}));
}

TEST(Projection, OnTheOppositeValueIsRefusedAndChangesNothing) {
    StabilizerState state(2);
    const Tables before = tables_of(state);
    EXPECT_FAILURE(project(state, signed_z(2, 1, true), 1), orthogonal);
    EXPECT_EQ(tables_of(state), before);
    EXPECT_EQ(state.num_rows, 2U);

    state.px(0);
    const Tables flipped = tables_of(state);
    EXPECT_FAILURE(project(state, signed_z(2, 0, false), 0), orthogonal);
    EXPECT_EQ(tables_of(state), flipped);
}

TEST(Projection, OnTheOppositeValueOfAProductIsRefused) {
    StabilizerState state(2);
    set_tables(state, {{"-ZI", "+ZZ"}, {"+XX", "+IX"}});
    const Tables before = tables_of(state);
    EXPECT_FAILURE(project(state, signed_z(2, 1, false), 1), orthogonal);
    EXPECT_EQ(tables_of(state), before);
    project(state, signed_z(2, 1, true), 1);
    EXPECT_EQ(tables_of(state), before);
}

/// Only phase 2 contradicts the state.
TEST(Projection, WithAnOddPhaseLeftChangesNothing) {
    for (const char* generator : {"+iZ", "-iZ"}) {
        StabilizerState state(1);
        set_tables(state, {{generator}, {"+X"}});
        const Tables before = tables_of(state);
        project(state, signed_z(1, 0, false), 0);
        project(state, signed_z(1, 0, true), 0);
        EXPECT_EQ(tables_of(state), before);
        EXPECT_EQ(state.num_rows, 1U);
    }
}

TEST(Projection, ReplacesTheGeneratorThatAnticommutes) {
    for (const bool minus : {false, true}) {
        StabilizerState state(1);
        set_tables(state, {{"-Y"}, {"+Z"}});
        project(state, signed_z(1, 0, minus), 0);
        EXPECT_EQ(tables_of(state), (Tables{{minus ? "-Z" : "+Z"}, {"-Y"}}));
    }
}

TEST(Projection, TakesTheFirstOfSeveralRows) {
    StabilizerState state(3);
    set_tables(state, {{"+IZZ", "-XXI", "+XIX"}, {"+IXI", "+ZII", "+XZZ"}});
    project(state, signed_z(3, 0, false), 0);
    // Multiplied from the right by the old -XXI, destabilizer +XZZ is -iIYZ and generator +XIX is
    // -IXX.
    EXPECT_EQ(tables_of(state), (Tables{{"+IZZ", "+ZII", "-IXX"}, {"+IXI", "-XXI", "-iIYZ"}}));
}

/// Rows before the replaced row are multiplied too.
TEST(Projection, MultipliesDestabilizersBeforeTheReplacedRow) {
    StabilizerState state(2);
    set_tables(state, {{"+ZZ", "+XI"}, {"-YX", "+ZI"}});
    project(state, signed_z(2, 0, true), 0);
    // Destabilizer -YX is multiplied from the right by +XI; Y times X is -iZ.
    EXPECT_EQ(tables_of(state), (Tables{{"+ZZ", "-ZI"}, {"+iZX", "+XI"}}));
}

/// The rows are selected by the X bit of the qubit, whatever the target is.
TEST(Projection, FindsItsRowsByTheQubitAlone) {
    StabilizerState state(2);
    set_tables(state, {{"+XI", "+IX"}, {"+ZI", "+IZ"}});
    project(state, row_of("-YZ"), 1);
    EXPECT_EQ(tables_of(state), (Tables{{"+XI", "-YZ"}, {"+ZI", "+IX"}}));
}

TEST(Projection, WithATargetOfAnotherLengthFailsInTheProduct) {
    StabilizerState state(2);
    const Tables before = tables_of(state);
    EXPECT_FAILURE(project(state, signed_z(3, 0, false), 0), "Incompatible stabilizer lengths");
    EXPECT_EQ(tables_of(state), before);
}

/// Rows that were changed before the product that fails stay changed.
TEST(Projection, KeepsWhatAFailedProductLeft) {
    StabilizerState state(2);
    set_tables(state, {{"+XI", "+XZ", "+XII"}, {"+ZI", "+IX", "+IIX"}});
    EXPECT_FAILURE(project(state, signed_z(2, 0, false), 0), "Incompatible stabilizer lengths");
    EXPECT_EQ(tables_of(state), (Tables{{"+ZI", "+IZ", "+XII"}, {"+XI", "+IX", "+IIX"}}));
}

TEST(Projection, DrawsNothing) {
    StabilizerState state(2);
    state.had(0);
    const std::mt19937_64 undrawn = state.rng;
    project(state, signed_z(2, 0, true), 0);
    project(state, signed_z(2, 0, true), 0);
    EXPECT_FAILURE(project(state, signed_z(2, 0, false), 0), orthogonal);
    EXPECT_EQ(state.rng, undrawn);
}

TEST(Projection, OnAWideRegister) {
    StabilizerState state(200);
    state.had(0);
    for (unsigned long qubit = 1; qubit < 200; ++qubit) state.cnot(0, qubit);
    project(state, signed_z(200, 130, true), 130);
    for (const unsigned long qubit : {0UL, 63UL, 64UL, 130UL, 199UL}) measure(state, qubit, 1);
}

}  // namespace
