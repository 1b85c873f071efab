// Projection on an operator that is independent of all generators: it adds a row, and an
// elimination restores the tables. A reset creates as many rows as qubits, so these tests set
// tables of fewer rows.
#include "clifford/tableau/clifford_support.h"

namespace {

using namespace Nimbrel::Testing;

constexpr const char* orthogonal = "Cannot project onto orthogonal state";

/// Sets the tables, projects on a signed Z and expects these tables with one row more.
void expect_added(const Tables& before, unsigned long qubit, bool minus, const Tables& after) {
    const auto qubits = static_cast<unsigned>(after.stabilizers.back().size() - 1);
    StabilizerState state(qubits);
    set_tables(state, before);
    const std::mt19937_64 undrawn = state.rng;
    project(state, signed_z(qubits, qubit, minus), qubit);
    EXPECT_EQ(tables_of(state), after);
    EXPECT_EQ(state.num_rows, before.stabilizers.size() + 1);
    EXPECT_EQ(state.num_qubits, qubits);
    EXPECT_EQ(state.rng, undrawn);
}

TEST(AddGenerator, ToATableauOfNoRows) {
    expect_added({}, 1, false, {{"+IZ"}, {"+IX"}});
    expect_added({}, 0, true, {{"-ZI"}, {"+XI"}});
}

TEST(AddGenerator, BehindTheOthers) {
    expect_added({{"+ZI"}, {"+XI"}}, 1, false, {{"+ZI", "+IZ"}, {"+XI", "+IX"}});
    expect_added({{"+ZI"}, {"+XI"}}, 1, true, {{"+ZI", "-IZ"}, {"+XI", "+IX"}});
}

TEST(AddGenerator, ComesFirstIfItsColumnDoes) {
    expect_added({{"+IZ"}, {"-IX"}}, 0, true, {{"-ZI", "+IZ"}, {"-XI", "+IX"}});
}

/// The new row is the target times the generators whose destabilizers anticommute with it: IXZ.
TEST(AddGenerator, TakesTheProductAndNotTheTarget) {
    expect_added({{"+XII", "-IXI"}, {"+ZII", "+IZX"}}, 2, false,
                 {{"+XII", "-IXI", "+IIZ"}, {"+ZII", "+IZI", "+IIX"}});
    // The new row is -ZZ. The pivot of column 0 makes it +IZ.
    expect_added({{"-ZI", "+ZI"}, {"+XX", "+XI"}}, 1, false,
                 {{"-ZI", "+IZ", "-II"}, {"+XI", "+IX", "+II"}});
}

TEST(AddGenerator, PrefersAnXPivotAndLeavesThatColumnsZ) {
    expect_added({{"+XXI", "+ZZI"}, {"+ZII", "+IXI"}}, 2, false,
                 {{"+XXI", "+ZZI", "+IIZ"}, {"+ZII", "+IXI", "+IIX"}});
    // The pivot of column 0 is the row with an X, so -ZZI and +XXI are exchanged.
    expect_added({{"-ZZI", "+XXI"}, {"+XII", "+IZI"}}, 2, true,
                 {{"+XXI", "-ZZI", "-IIZ"}, {"+ZII", "+IXI", "+IIX"}});
}

/// Exchanged generators keep their phases. Destabilizers are not exchanged; their letters are
/// replaced and their phases kept.
TEST(AddGenerator, ExchangesGeneratorsAndKeepsThePhasesOfPartners) {
    expect_added({{"-IZI", "+XIZ"}, {"-IXI", "+iZYI"}}, 2, true,
                 {{"-XII", "-IZI", "-IIZ"}, {"-ZII", "+iIXI", "+IIX"}});
}

/// Row 0 clears the X of row 1 on qubit 0. The new row is IXZ, and row 1 clears its X.
TEST(AddGenerator, ClearsAnXColumnInEveryOtherRow) {
    expect_added({{"+XII", "+XXI"}, {"+ZZX", "+IZX"}}, 2, false,
                 {{"+XII", "+IXI", "+IIZ"}, {"+ZII", "+IZI", "+IIX"}});
}

/// The X pivot of column 1 also clears column 1 of row 0, above it.
TEST(AddGenerator, ClearsAnXColumnAboveThePivotToo) {
    expect_added({{"+XXI", "-IXI"}, {"+ZII", "+IZI"}}, 2, false,
                 {{"-XII", "-IXI", "+IIZ"}, {"+ZII", "+IZI", "+IIX"}});
}

/// Y times Z above the pivot: +iX.
TEST(AddGenerator, ClearsAZColumnAboveThePivotToo) {
    expect_added({{"+XYI", "+IZI"}, {"+ZII", "+IXI"}}, 2, false,
                 {{"+iXXI", "+IZI", "+IIZ"}, {"+ZII", "+IXI", "+IIX"}});
}

/// Y times X is -iZ, and X times Y would be +iZ.
TEST(AddGenerator, MultipliesFromTheRight) {
    expect_added({{"+XII", "+YZI"}, {"+ZII", "+IXI"}}, 2, false,
                 {{"+XII", "-iZZI", "+IIZ"}, {"+ZII", "+IXI", "+IIX"}});
}

/// Column 1 has no letter. The second -ZII becomes -III, has no pivot and moves to the last row,
/// whose destabilizer is the new one.
TEST(AddGenerator, PassesOverAColumnWithoutAPivot) {
    expect_added({{"+ZII", "-ZII"}, {"+XZI", "-iYII"}}, 2, false,
                 {{"+ZII", "+IIZ", "-III"}, {"+XII", "-iIIX", "+III"}});
}

/// Both rows have pivots after column 1, so row 0 keeps its Z on qubit 2.
TEST(AddGenerator, StopsWhenEveryRowHasItsPivot) {
    expect_added({{"+XIZ"}, {"+ZII"}}, 1, false, {{"+XIZ", "+IZI"}, {"+ZII", "+IXI"}});
}

TEST(AddGenerator, SettlesTheOperator) {
    StabilizerState state(3);
    set_tables(state, {{"+XXI", "+ZZI"}, {"+ZII", "+IXI"}});
    project(state, signed_z(3, 2, true), 2);
    const Tables after = tables_of(state);
    project(state, signed_z(3, 2, true), 2);
    EXPECT_EQ(tables_of(state), after);
    EXPECT_EQ(state.num_rows, 3U);
    EXPECT_FAILURE(project(state, signed_z(3, 2, false), 2), orthogonal);
    EXPECT_EQ(tables_of(state), after);
    measure(state, 2, 1);
}

/// The destabilizers select the generators that make up the operator. These select none, so +Z
/// counts as independent.
TEST(AddGenerator, AddsWhatAWrongPartnerHides) {
    expect_added({{"+Z"}, {"+Z"}}, 0, false, {{"+Z", "+I"}, {"+X", "+I"}});
}

TEST(AddGenerator, InTheMiddleOfAWideTableau) {
    constexpr unsigned qubits = 130;
    constexpr unsigned missing = 64;
    StabilizerState state(qubits);
    const auto drop = [](std::vector<Stabilizer>& rows) { rows.erase(rows.begin() + missing); };
    drop(state.stabilizers);
    drop(state.destabilizers);
    state.num_rows = qubits - 1;
    project(state, signed_z(qubits, missing, true), missing);

    StabilizerState expected(qubits);
    expected.px(missing);
    EXPECT_EQ(tables_of(state), tables_of(expected));
    EXPECT_EQ(state.num_rows, qubits);
    state.had(missing);
    state.cnot(missing, 129);
    expected.had(missing);
    expected.cnot(missing, 129);
    EXPECT_EQ(tables_of(state), tables_of(expected));
}

/// Generators added one by one, in any order, give the tableau of a fresh register.
TEST(AddGenerator, BuildsATableauFromNothing) {
    constexpr unsigned qubits = 70;
    StabilizerState state(qubits);
    set_tables(state, {});
    for (unsigned i = 0; i < qubits; ++i) {
        const unsigned qubit = i * 27 % qubits;
        project(state, signed_z(qubits, qubit, qubit % 3 == 0), qubit);
        ASSERT_EQ(state.num_rows, i + 1);
    }
    StabilizerState expected(qubits);
    for (unsigned qubit = 0; qubit < qubits; qubit += 3) expected.px(qubit);
    EXPECT_EQ(tables_of(state), tables_of(expected));
}

}  // namespace
