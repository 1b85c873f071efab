// The same programs give the same bits on every processor and at every vector width.
#include <gtest/gtest.h>

#include "clifford/tableau/string_product.h"
#include "dense/blocks/kernels/width.h"
#include "processors/run_program.h"

namespace Nimbrel::Testing {
namespace {

struct Fingerprints {
    unsigned long input;
    unsigned long results;
};

// Made by `make program-fingerprints`.
constexpr Fingerprints stored[] = {
#include "processors/program_fingerprints.inc"
};
static_assert(std::size(stored) == num_programs);

/// The parameter: whether 512-bit vectors may be used, where the processor has them.
class SameBits : public testing::TestWithParam<bool> {
  protected:
    void SetUp() override {
        use_wide_kernels(GetParam());
        use_wide_strings(GetParam());
    }
    void TearDown() override {
        use_wide_kernels(true);
        use_wide_strings(true);
    }
};

TEST_P(SameBits, OfEveryProgram) {
    for (unsigned number = 0; number < num_programs; ++number) {
        const Program program = make_program(number);
        // Without this, other programs could pass for other results.
        ASSERT_EQ(fingerprint_of_input(program), stored[number].input) << "program " << number;
        EXPECT_EQ(fingerprint_of_results(program), stored[number].results)
            << "program " << number << " on " << program.qubits << " qubits";
    }
}

INSTANTIATE_TEST_SUITE_P(Widths, SameBits, testing::Bool());

}  // namespace
}  // namespace Nimbrel::Testing
