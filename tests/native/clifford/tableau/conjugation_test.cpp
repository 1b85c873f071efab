// The image of each letter, or pair of letters, under each gate.
#include "clifford/tableau/clifford_support.h"

namespace {

using namespace Nimbrel::Testing;

using OneQubitGate = void (*)(StabilizerState&, unsigned long);

void inverse_s(StabilizerState& state, unsigned long qubit) {
    state.pz(qubit);
    state.sgate(qubit);
}

struct OneQubitRules {
    const char* name;
    OneQubitGate gate;
    std::array<std::string_view, 4> images;  ///< images of I, X, Y and Z

    friend void PrintTo(const OneQubitRules& rules, std::ostream* out) { *out << rules.name; }
};

constexpr std::string_view in_order = "IXYZ";

const OneQubitRules one_qubit_rules[] = {
    {"x", [](auto& state, auto qubit) { state.px(qubit); }, {"+I", "+X", "-Y", "-Z"}},
    {"y", [](auto& state, auto qubit) { state.py(qubit); }, {"+I", "-X", "+Y", "-Z"}},
    {"z", [](auto& state, auto qubit) { state.pz(qubit); }, {"+I", "-X", "-Y", "+Z"}},
    {"had", [](auto& state, auto qubit) { state.had(qubit); }, {"+I", "+Z", "-Y", "+X"}},
    {"s", [](auto& state, auto qubit) { state.sgate(qubit); }, {"+I", "+Y", "-X", "+Z"}},
    {"inverse s", inverse_s, {"+I", "-Y", "+X", "+Z"}},
};

/// The image with the phase of the row added to its sign.
std::string with_phase(std::string_view image, unsigned phase) {
    const unsigned sum = phase + (image[0] == '-' ? 2 : 0);
    return std::string(signs[sum % 4]) + std::string(image.substr(1));
}

class OneQubitGates : public testing::TestWithParam<OneQubitRules> {};

TEST_P(OneQubitGates, MapEveryLetterUnderEveryPhase) {
    for (std::size_t i = 0; i < in_order.size(); ++i) {
        for (unsigned phase = 0; phase < 4; ++phase) {
            const std::string row = with_phase(std::string("+") + in_order[i], phase);
            const std::string image = with_phase(GetParam().images[i], phase);
            StabilizerState state(1);
            set_tables(state, {{row}, {"+I"}});
            GetParam().gate(state, 0);
            EXPECT_EQ(tables_of(state), (Tables{{image}, {"+I"}})) << row;
            set_tables(state, {{"+I"}, {row}});
            GetParam().gate(state, 0);
            EXPECT_EQ(tables_of(state), (Tables{{"+I"}, {image}})) << row;
        }
    }
}

/// Rows of 130 qubits with the letter under test at one qubit and Y at all others.
TEST_P(OneQubitGates, ActOnTheirQubitInEveryRowAndOnNoOther) {
    for (const unsigned long qubit : {0UL, 63UL, 64UL, 129UL}) {
        Tables before;
        Tables after;
        for (std::size_t i = 0; i < in_order.size(); ++i) {
            std::string row = uniform_row(130, 'Y');
            row[1 + qubit] = in_order[i];
            std::string image = row;
            image[0] = GetParam().images[i][0];
            image[1 + qubit] = GetParam().images[i][1];
            before.stabilizers.push_back(row);
            after.stabilizers.push_back(image);
        }
        before.destabilizers = {before.stabilizers.rbegin(), before.stabilizers.rend()};
        after.destabilizers = {after.stabilizers.rbegin(), after.stabilizers.rend()};
        StabilizerState state(130);
        set_tables(state, before);
        GetParam().gate(state, qubit);
        EXPECT_EQ(tables_of(state), after) << qubit;
    }
}

TEST_P(OneQubitGates, TakeTheWordFromTheLowHalfOfTheNumber) {
    StabilizerState state(70);
    StabilizerState expected(70);
    GetParam().gate(state, (7UL << 32) + 65);
    GetParam().gate(expected, 65);
    EXPECT_EQ(tables_of(state), tables_of(expected));
}

INSTANTIATE_TEST_SUITE_P(Rules, OneQubitGates, testing::ValuesIn(one_qubit_rules));

struct TwoQubitRule {
    std::string_view before;
    std::string_view image;
};

/// Letters of the control and of the target.
constexpr TwoQubitRule cnot_rules[] = {
    {"II", "+II"}, {"IX", "+IX"}, {"IY", "+ZY"}, {"IZ", "+ZZ"}, {"XI", "+XX"}, {"XX", "+XI"},
    {"XY", "+YZ"}, {"XZ", "-YY"}, {"YI", "+YX"}, {"YX", "+YI"}, {"YY", "-XZ"}, {"YZ", "+XY"},
    {"ZI", "+ZI"}, {"ZX", "+ZX"}, {"ZY", "+IY"}, {"ZZ", "+IZ"},
};

/// No sign changes. A full conjugation would change the sign of XY and YX.
constexpr TwoQubitRule cz_rules[] = {
    {"II", "+II"}, {"IX", "+ZX"}, {"IY", "+ZY"}, {"IZ", "+IZ"}, {"XI", "+XZ"}, {"XX", "+YY"},
    {"XY", "+YX"}, {"XZ", "+XI"}, {"YI", "+YZ"}, {"YX", "+XY"}, {"YY", "+XX"}, {"YZ", "+YI"},
    {"ZI", "+ZI"}, {"ZX", "+IX"}, {"ZY", "+IY"}, {"ZZ", "+ZZ"},
};

using TwoQubitGate = void (StabilizerState::*)(unsigned long, unsigned long);

/// Applies the gate to rows of Y with the two letters at two qubits and compares the images.
void expect_rule(TwoQubitGate gate, const TwoQubitRule& rule, unsigned long first,
                 unsigned long second) {
    const auto row = [&](char sign, std::string_view pair) {
        std::string text = uniform_row(130, 'Y', sign);
        text[1 + first] = pair[0];
        text[1 + second] = pair[1];
        return text;
    };
    const std::string plain = row('+', rule.before);
    const std::string minus = row('-', rule.before);
    const std::string image = row(rule.image[0], rule.image.substr(1));
    const std::string opposite = row(rule.image[0] == '+' ? '-' : '+', rule.image.substr(1));
    StabilizerState state(130);
    set_tables(state, {{plain, minus}, {minus, plain}});
    (state.*gate)(first, second);
    EXPECT_EQ(tables_of(state), (Tables{{image, opposite}, {opposite, image}}))
        << rule.before << " on " << first << " and " << second;
}

/// Two qubits of one word in both orders, of two words, and at the ends of a word.
const std::pair<unsigned long, unsigned long> places[] = {{0, 1},   {1, 0},   {3, 62}, {63, 64},
                                                          {64, 63}, {129, 0}, {0, 128}};

TEST(ControlledNot, MapsEveryPairOfLetters) {
    for (const auto& [control, target] : places) {
        for (const TwoQubitRule& rule : cnot_rules) {
            expect_rule(&StabilizerState::cnot, rule, control, target);
        }
    }
}

TEST(ControlledZ, MapsEveryPairOfLettersAndLeavesThePhase) {
    for (const auto& [a, b] : places) {
        for (const TwoQubitRule& rule : cz_rules) expect_rule(&StabilizerState::cz, rule, a, b);
    }
}

TEST(ControlledGates, KeepOddPhasesOdd) {
    StabilizerState state(2);
    set_tables(state, {{"+iXZ", "-iYY"}, {"-iXZ", "+iXY"}});
    state.cnot(0, 1);
    EXPECT_EQ(tables_of(state), (Tables{{"-iYY", "+iXZ"}, {"+iYY", "+iYZ"}}));
    state.cz(0, 1);
    EXPECT_EQ(tables_of(state), (Tables{{"-iXX", "+iXI"}, {"+iXX", "+iYI"}}));
}

TEST(ControlledGates, TakeTheWordFromTheLowHalfOfTheNumber) {
    for (const TwoQubitGate gate : {&StabilizerState::cnot, &StabilizerState::cz}) {
        StabilizerState state(70);
        StabilizerState expected(70);
        (state.*gate)((1UL << 32) + 2, (1UL << 63) + 69);
        (expected.*gate)(2, 69);
        EXPECT_EQ(tables_of(state), tables_of(expected));
    }
}

/// A record may have the same qubit as control and target. The letter is read before it is toggled.
TEST(ControlledGates, OnOneQubitTwice) {
    StabilizerState state(4);
    const Tables before{{"+IXZY", "-YYYY", "+iYXII", "+ZZZZ"},
                        {"+XXXX", "-XIII", "+ZIII", "-YIII"}};
    set_tables(state, before);
    state.cz(0, 0);
    EXPECT_EQ(tables_of(state), before);
    state.cnot(0, 0);
    EXPECT_EQ(tables_of(state), (Tables{{"+IXZY", "+IYYY", "-iIXII", "+IZZZ"},
                                        {"+IXXX", "-IIII", "+IIII", "+IIII"}}));
}

TEST(ControlledZ, IsSymmetric) {
    StabilizerState one(2);
    StabilizerState other(2);
    const Tables before{{"+XY", "-ZX"}, {"+YZ", "-XX"}};
    set_tables(one, before);
    set_tables(other, before);
    one.cz(0, 1);
    other.cz(1, 0);
    EXPECT_EQ(tables_of(one), tables_of(other));
    EXPECT_EQ(tables_of(one), (Tables{{"+YX", "-IX"}, {"+YI", "-YY"}}));
}

}  // namespace
