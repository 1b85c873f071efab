#include <gtest/gtest.h>

#include "core_register/core_register.h"

namespace {

using Nimbrel::QPU;

TEST(RegisterShell, StartsWithoutQubitsAndWithDefaultParameters) {
    const QPU qpu(0, nullptr);
    EXPECT_EQ(qpu.num_qubits, 0UL);
    EXPECT_EQ(qpu.owner, nullptr);
    EXPECT_FALSE(qpu.debug_qubits);
    EXPECT_FALSE(qpu.verbose);
    EXPECT_EQ(qpu.read_flag_capacity, 100000000UL);
    EXPECT_TRUE(qpu.read_flags.empty());
    const std::map<std::string, unsigned long> defaults{
        {"num_block_qubits", 0}, {"max_ram_size_gb", 0}, {"max_num_threads", 0}, {"randomized", 0},
        {"use_opencl", 0},       {"async", 1},           {"verbose", 0}};
    EXPECT_EQ(qpu.sim_params, defaults);
}

}  // namespace
