#include <gtest/gtest.h>

#include "core_register/state_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr unsigned long plenty = 100;

class Print : public testing::TestWithParam<Layout> {
  protected:
    void SetUp() override {
        shape(qpu, 2, GetParam());
        load(qpu, {{0.5, -0.0}, {0.0, 0.0}, {-1.0 / 3.0, 1e-7}, {0.0, 0.0}});
    }

    QPU qpu{0, nullptr};
};
INSTANTIATE_TEST_SUITE_P(Layouts, Print, testing::ValuesIn(all_layouts));

TEST_P(Print, ShowsEveryTermForAThresholdThatIsNotPositive) {
    const std::string expected =
        "  State vector:\n"
        "    |0> (0.5, -0)\n"
        "    |1> (0, 0)\n"
        "    |2> (-0.333333, 1e-07)\n"
        "    |3> (0, 0)\n";
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 0.0, plenty), expected);
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, -1.0, plenty), expected);
}

TEST_P(Print, NamesTheLine) {
    EXPECT_EQ(qpu.print_state_vector_to_string(0, 2.0, plenty), "  State vector at line 0\n");
    EXPECT_EQ(qpu.print_state_vector_to_string(1234, 2.0, plenty), "  State vector at line 1234\n");
    EXPECT_EQ(qpu.print_state_vector_to_string(-5, 2.0, plenty), "  State vector:\n");
}

TEST_P(Print, ShowsTermsFromTheThresholdOn) {
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 0.25, plenty),
              "  State vector:\n    |0> (0.5, -0)\n");
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 1e-300, plenty),
              "  State vector:\n    |0> (0.5, -0)\n    |2> (-0.333333, 1e-07)\n");
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 0.26, plenty), "  State vector:\n");
}

TEST_P(Print, TheNoteComesAfterTheTermThatIsOneTooMany) {
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 0.0, 3),
              "  State vector:\n"
              "    |0> (0.5, -0)\n"
              "    |1> (0, 0)\n"
              "    |2> (-0.333333, 1e-07)\n"
              "    |3> (0, 0)\n"
              "...output truncated to 3 values.\n");
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 0.0, 0),
              "  State vector:\n"
              "    |0> (0.5, -0)\n"
              "...output truncated to 0 values.\n");
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 1e-300, 1),
              "  State vector:\n"
              "    |0> (0.5, -0)\n"
              "    |2> (-0.333333, 1e-07)\n"
              "...output truncated to 1 values.\n");
}

TEST_P(Print, FollowsTheTermsThroughExchangedBlocks) {
    qpu.op_not(0b10, 0, 0, 0);
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 0.2, plenty),
              "  State vector:\n    |2> (0.5, -0)\n");
}

TEST_P(Print, WritesTheSameToStandardOutput) {
    testing::internal::CaptureStdout();
    qpu.print_state_vector(7, 0.0, 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), qpu.print_state_vector_to_string(7, 0.0, 2));
}

TEST(PrintWithoutRegister, ShowsTheHeadingOfNoTerms) {
    QPU qpu(0, nullptr);
    EXPECT_EQ(qpu.print_state_vector_to_string(-1, 0.0, plenty), "  State vector:\n");
}

TEST(PrintWithoutRegister, FailsWhereTermsWereExpected) {
    QPU qpu(0, nullptr);
    shape(qpu, 2, {0, false});
    qpu.deallocate();
    EXPECT_FAILURE(qpu.print_state_vector_to_string(-1, 0.0, plenty), no_register_text);
    EXPECT_FAILURE(qpu.print_state_vector(-1, 0.0, plenty), no_register_text);
}

}  // namespace
