/// Whether each operation reports that it changed the block. Only the disk tier, which no register
/// uses, reads this: it writes a changed block to its file.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "dense/blocks/block_support.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

constexpr complex_t zero{0.0, 0.0};
constexpr complex_t some{0.5, -0.25};

/// An operation on a block of two amplitudes, and whether it reports a change.
struct Operation {
    const char* name;
    bool writes;
    complex_t first, second;
    void (*run)(CoreBlock&);

    friend void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }
};

constexpr GateMatrix complex_matrix{GateKind::diagonal_matrix, {{{1, 0}, {0, 0}, {0, 0}, {1, 0}}}};
constexpr GateMatrix real_matrix{GateKind::real_matrix, {{{1, 0}, {0, 0}, {0, 0}, {1, 0}}}};
double sum;
unsigned long slot;

constexpr Operation operations[] = {
    {"not_of_different_terms", true, some, zero, [](CoreBlock& b) { b.op_not(1); }},
    {"not_of_equal_terms", false, some, some, [](CoreBlock& b) { b.op_not(1); }},
    {"cnot_of_equal_terms", true, some, some, [](CoreBlock& b) { b.op_cnot(1, {}); }},
    {"cnot_of_no_slot", true, some, zero, [](CoreBlock& b) { b.op_cnot(1, {4, 4}); }},
    {"hadamard_of_zeros", true, zero, zero, [](CoreBlock& b) { b.op_hadamard(1, {}); }},
    {"complex_matrix", true, zero, some,
     [](CoreBlock& b) { b.op_complex2x2(1, {}, complex_matrix); }},
    {"complex_matrix_of_zeros", false, zero, zero,
     [](CoreBlock& b) { b.op_complex2x2(1, {}, complex_matrix); }},
    {"complex_matrix_of_no_slot", false, some, some,
     [](CoreBlock& b) { b.op_complex2x2(1, {4, 4}, complex_matrix); }},
    {"real_matrix", true, some, zero, [](CoreBlock& b) { b.op_real2x2(1, {}, real_matrix); }},
    {"real_matrix_of_zeros", false, zero, zero,
     [](CoreBlock& b) { b.op_real2x2(1, {}, real_matrix); }},
    {"phase_of_no_slot", true, some, some, [](CoreBlock& b) { b.op_phase({4, 4}, 0.6, 0.8); }},
    {"phase_of_one", false, some, some, [](CoreBlock& b) { b.op_phase({1, 1}, 0.0, 1.0); }},
    {"cz_of_no_slot", true, some, some, [](CoreBlock& b) { b.op_cz({4, 4}); }},
    {"ppr", true, some, some, [](CoreBlock& b) { b.op_ppr(1, 1, {}, 0.0, 1.0); }},
    {"ppm", true, some, some, [](CoreBlock& b) { b.op_ppm(0, 1, 0); }},
    {"pps", false, some, some, [](CoreBlock& b) { b.op_pps(1, 1, &sum); }},
    {"x_multi", true, some, some, [](CoreBlock& b) { b.op_x_multi(1, 0); }},
    {"read_probability", false, some, some,
     [](CoreBlock& b) { b.peek_read_probability(&sum, 0, 1, 0.0); }},
    {"index_from_probability", false, some, some,
     [](CoreBlock& b) { b.get_index_from_probability(0.0, &slot); }},
    {"scale", true, zero, zero, [](CoreBlock& b) { b.scale_probability(1.0); }},
    {"collapse_that_keeps_all", false, some, some, [](CoreBlock& b) { b.collapse(0, 0); }},
    {"collapse_of_a_zero", true, some, zero, [](CoreBlock& b) { b.collapse(1, 0); }},
    {"zero_mask_of_no_slot", false, some, some, [](CoreBlock& b) { b.set_zero_mask(4); }},
    {"zero_mask_of_a_zero", true, some, zero, [](CoreBlock& b) { b.set_zero_mask(1); }},
    {"zero", true, zero, zero, [](CoreBlock& b) { b.set_zero(); }},
    {"random", true, zero, zero, [](CoreBlock& b) { b.set_random(); }},
    {"one_value", true, some, some, [](CoreBlock& b) { b.set_value(0, {0.5, -0.25}); }},
    {"all_values_read", true, some, some,
     [](CoreBlock& b) { b.get_all_values(std::array<complex_t, 2>{}.data()); }},
};

class WriteBack : public testing::TestWithParam<Operation> {};

INSTANTIATE_TEST_SUITE_P(All, WriteBack, testing::ValuesIn(operations),
                         [](const auto& operation) { return operation.param.name; });

TEST_P(WriteBack, FollowsTheChange) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
    CoreBlockStore store(1, 1, 8, nullptr, false, false);
    store.block_files[0] = dup(fileno(file.get()));
    store.block_data[0] = GetParam().first;
    store.block_data[1] = GetParam().second;
    CoreBlock block(0, 1, &store, nullptr, false, false);

    GetParam().run(block);
    EXPECT_EQ(block.lock_count, 0);
    struct stat status{};
    ASSERT_EQ(fstat(fileno(file.get()), &status), 0);
    EXPECT_EQ(status.st_size, GetParam().writes ? 32 : 0);
}

}  // namespace
