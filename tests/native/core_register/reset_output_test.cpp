#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>

#include "core_register/core_register.h"
#include "dense/blocks/store.h"

namespace {

using Nimbrel::QPU;

class ResetOutput : public testing::Test {
  protected:
    ResetOutput() { qpu.sim_params["verbose"] = 1; }

    std::string printed_by_reset(unsigned long qubits) {
        testing::internal::CaptureStdout();
        EXPECT_TRUE(qpu.reset(qubits, nullptr));
        return testing::internal::GetCapturedStdout();
    }

    /// The store's line, which names its two addresses.
    std::string store_line(const std::string& size) const {
        char text[200];
        std::snprintf(text, sizeof text, "> Blockstore RAM alloc (%s) %p %p\n", size.c_str(),
                      static_cast<void*>(qpu.block_store->block_data),
                      static_cast<void*>(qpu.block_store->ram_block_in_use));
        return text;
    }

    QPU qpu{0, nullptr};
};

TEST_F(ResetOutput, OfBlocksByHand) {
    qpu.sim_params["num_block_qubits"] = 3;
    qpu.sim_params["max_num_threads"] = 2;
    const std::string printed = printed_by_reset(4);
    EXPECT_EQ(printed,
              "Setting thread count...\n"
              "    User requested num_qubits: 4\n"
              "    User requested num_block_qubits: 3\n"
              "     (ignoring max_num_threads in favor of num_block_qubits)\n"
              "    ...setting num_threads to 2\n"
              "Allocating quantum register (qubits: 4, blocks: 2, terms: 16, total size: "
              "256 bytes...\n" +
                  store_line("256 bytes") +
                  "Core Block 0 ok (ocl=0, 3 qubits, 8 terms, 0.000 MB)\n"
                  "Core Block 1 ok (ocl=0, 3 qubits, 8 terms, 0.000 MB)\n");
}

TEST_F(ResetOutput, OfTheAutomaticChoice) {
    const std::string hardware = std::to_string(std::thread::hardware_concurrency());
    const std::string printed = printed_by_reset(12);
    EXPECT_EQ(printed,
              "Automatically setting thread count...\n"
              "    Detected CPU hard-threads: " +
                  hardware +
                  "\n"
                  "    ...setting num_threads to 1\n"
                  "Allocating quantum register (qubits: 12, blocks: 1, terms: 4096, total "
                  "size: 64 KB...\n" +
                  store_line("64 KB") +
                  "Core Block 0 ok (ocl=0, 12 qubits, 4096 terms, 0.062 MB)\n");
}

TEST_F(ResetOutput, OfTheSameShapeTellsTheDecisionAndTheBlocksOnly) {
    qpu.sim_params["num_block_qubits"] = 1;
    printed_by_reset(1);
    EXPECT_EQ(printed_by_reset(1),
              "Setting thread count...\n"
              "    User requested num_qubits: 1\n"
              "    User requested num_block_qubits: 1\n"
              "    ...setting num_threads to 1\n"
              "Core Block 0 ok (ocl=0, 1 qubits, 2 terms, 0.000 MB)\n");
}

TEST_F(ResetOutput, WithoutVerboseThereIsNone) {
    qpu.sim_params["verbose"] = 0;
    EXPECT_EQ(printed_by_reset(3), "");
    EXPECT_FALSE(qpu.verbose);
}

}  // namespace
