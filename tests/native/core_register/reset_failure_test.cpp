#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <new>
#include <string>
#include <system_error>

#include "core_register/core_register.h"
#include "core_register/state_support.h"
#include "dense/blocks/store.h"
#include "fixed_memory.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Testing;

class ResetFailure : public testing::Test {
  protected:
    /// Resets to more qubits than any memory holds and returns what was printed.
    std::string exhausted_reset(unsigned long qubits) {
        testing::internal::CaptureStdout();
        EXPECT_FALSE(qpu.reset(qubits, nullptr));
        return testing::internal::GetCapturedStdout();
    }

    std::string limit_text(unsigned long qubits, const std::string& gigabytes,
                           const std::string& limit) {
        return "RAM size for " + std::to_string(qubits) + " qubits requires " + gigabytes +
               " GB, which exceeds qc.reset(max_ram_size_gb) limit of " + limit +
               " GB.\n"
               "To fix this, either increase max_ram_size_gb using qc.reset(), reduce the number "
               "of qubits,\n"
               "or remove the >>state-vector-sim>>/>>qpu>> filter (possibly replace it with "
               ">>bit-sim>> if applicable)\n";
    }

    /// Operations that need amplitudes throw, and none crashes.
    void expect_no_register() {
        EXPECT_EQ(qpu.blocks, nullptr);
        qpu.finish();
        qpu.removable_finish();
        EXPECT_TRUE(qpu.self_check(1));
        EXPECT_FAILURE(qpu.verify_allocated(), no_register_text);
        EXPECT_FAILURE(qpu.hadamard(1, 0, 0, -1), no_register_text);
        EXPECT_FAILURE(qpu.phase(90.0, 0, 0, 0, 0), no_register_text);
        EXPECT_FAILURE(qpu.pps(0, 0), no_register_text);
        EXPECT_FAILURE(qpu.pcp(500.0, 0, 0, -1), no_register_text);
        EXPECT_FAILURE(qpu.QFT(0, false, false, false), no_register_text);
        EXPECT_FAILURE(qpu.normalize(), no_register_text);
        EXPECT_FAILURE(qpu.set_zero_mask(0), no_register_text);
        EXPECT_FAILURE(qpu.get_value(0), no_register_text);
    }

    QPU qpu{0, nullptr};
};

TEST_F(ResetFailure, ANewRegisterHasNone) { expect_no_register(); }

TEST_F(ResetFailure, AStateOverTheLimitIsRefused) {
    qpu.sim_params["num_block_qubits"] = 1;
    ASSERT_TRUE(qpu.reset(3, nullptr));
    qpu.sim_params["max_ram_size_gb"] = 1;
    EXPECT_FAILURE(qpu.reset(27, nullptr), limit_text(27, "2", "1"));
    EXPECT_EQ(qpu.num_qubits, 27UL);
    EXPECT_EQ(qpu.block_store, nullptr);
    expect_no_register();
    EXPECT_TRUE(qpu.reset(3, nullptr));
}

TEST_F(ResetFailure, TheRefusalTellsSizesAsPeopleReadThem) {
    qpu.sim_params["max_ram_size_gb"] = 100;
    EXPECT_FAILURE(qpu.reset(60, nullptr), limit_text(60, "1.71799e+10", "100"));
    EXPECT_FAILURE(qpu.reset(64, nullptr), limit_text(64, "2.74878e+11", "100"));
    EXPECT_FAILURE(qpu.reset(1UL << 62, nullptr), limit_text(1UL << 62, "inf", "100"));
    expect_no_register();
}

TEST_F(ResetFailure, ABufferIsNeverOverTheLimit) {
    qpu.sim_params["max_ram_size_gb"] = 1;
    EXPECT_FAILURE(qpu.reset(27, nullptr), limit_text(27, "2", "1"));
    // A reset may not reuse the sizes of a refused register.
    alignas(32) complex_t state[2] = {{1.0, 0.0}, {0.0, 0.0}};
    EXPECT_TRUE(qpu.reset(1, state));
    EXPECT_STATE(state_of(qpu), basis(2, 0));
}

TEST_F(ResetFailure, ExhaustedMemoryIsReportedAndNotThrown) {
    EXPECT_EQ(exhausted_reset(60),
              "Error: NULL block_data at line 0\n"
              "------------------------------------\n"
              "Error: failed to allocate the state vector (qubits: 60, terms: "
              "1152921504606846976, total size: 1.67772e+07 TB...\n"
              "(Default serverless backend: max 26 qubits)\n"
              "------------------------------------\n");
    EXPECT_NE(qpu.block_store, nullptr);
    EXPECT_EQ(qpu.block_store->block_data, nullptr);
    EXPECT_TRUE(qpu.use_threads);
    expect_no_register();
}

TEST_F(ResetFailure, MemoryThatTheProcessMayNotHaveIsExhausted) {
    ASSERT_TRUE(qpu.reset(3, nullptr));
    const FixedMemory memory((128UL << 20) - 1);
    EXPECT_EQ(exhausted_reset(23),
              "Error: NULL block_data at line 0\n"
              "------------------------------------\n"
              "Error: failed to allocate the state vector (qubits: 23, terms: 8388608, total "
              "size: 128 MB...\n"
              "(Default serverless backend: max 26 qubits)\n"
              "------------------------------------\n");
    EXPECT_EQ(qpu.block_store->block_data, nullptr);
    expect_no_register();
    EXPECT_TRUE(qpu.reset(22, nullptr));
}

TEST_F(ResetFailure, ABufferAndTheShapeThatIsThereNeedNoMemory) {
    ASSERT_TRUE(qpu.reset(21, nullptr));
    const FixedMemory none(0);
    EXPECT_TRUE(qpu.reset(21, nullptr));
    constexpr std::align_val_t alignment{32};
    auto* const lent = new (alignment) complex_t[1UL << 21]{};
    EXPECT_TRUE(qpu.reset(21, lent));
    EXPECT_EQ(qpu.block_store->block_data, lent);
    qpu.deallocate();
    operator delete[](lent, alignment);
}

TEST_F(ResetFailure, SizesBeyondTheWordSaturate) {
    for (const unsigned long qubits : {64UL, 65UL, 1000UL}) {
        EXPECT_EQ(exhausted_reset(qubits),
                  "Error: NULL block_data at line 0\n"
                  "------------------------------------\n"
                  "Error: failed to allocate the state vector (qubits: " +
                      std::to_string(qubits) +
                      ", terms: 18446744073709551615, total size: 1.67772e+07 TB...\n"
                      "(Default serverless backend: max 26 qubits)\n"
                      "------------------------------------\n");
        expect_no_register();
    }
    EXPECT_EQ(qpu.qubit_mask, ~0UL);
    EXPECT_EQ(qpu.num_terms, ~0UL);
}

TEST_F(ResetFailure, SmallBlocksOfAHugeRegisterSaturateToo) {
    qpu.sim_params["num_block_qubits"] = 1;
    exhausted_reset(100);
    EXPECT_EQ(qpu.num_blocks, ~0UL);
    expect_no_register();
    EXPECT_TRUE(qpu.reset(2, nullptr));
    EXPECT_STATE(state_of(qpu), basis(4, 0));
}

TEST_F(ResetFailure, VerboseTellsWhatWasTried) {
    qpu.sim_params["num_block_qubits"] = 62;
    qpu.sim_params["verbose"] = 1;
    const std::string printed = exhausted_reset(63);
    EXPECT_TRUE(printed.starts_with(
        "Setting thread count...\n"
        "    User requested num_qubits: 63\n"
        "    User requested num_block_qubits: 62\n"
        "    ...setting num_threads to 8\n"
        "Allocating quantum register (qubits: 63, blocks: 2, terms: 9223372036854775808, total "
        "size: 1.67772e+07 TB...\n"
        "Error: NULL block_data at line 0\n"))
        << printed;
}

TEST_F(ResetFailure, TheShapeThatFailedIsTakenForTheShapeThatIsThere) {
    exhausted_reset(60);
    EXPECT_FAILURE(qpu.reset(60, nullptr), no_register_text);
    exhausted_reset(1UL << 62);
    EXPECT_FAILURE(qpu.reset(1UL << 62, nullptr), no_register_text);
}

TEST_F(ResetFailure, AnImpossibleRegisterClaimsNoReservationTable) {
    exhausted_reset(1UL << 62);
    EXPECT_EQ(qpu.qint_table.size(), 64U);
    for (int qubit = 0; qubit < 64; ++qubit) EXPECT_EQ(qpu.reserve_qubits(1), qubit);
    testing::internal::CaptureStdout();
    EXPECT_EQ(qpu.reserve_qubits(1), 0xFFFFFFFF);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Error: Attempted to allocate 1 qubits, but the QPU has none available.\n");
}

TEST_F(ResetFailure, ARefusedRegisterKeepsItsReservationsInBounds) {
    ASSERT_TRUE(qpu.reset(2, nullptr));
    qpu.sim_params["max_ram_size_gb"] = 1;
    EXPECT_THROW(qpu.reset(40, nullptr), std::runtime_error);
    EXPECT_EQ(qpu.reserve_qubits(2), 0);
    testing::internal::CaptureStdout();
    EXPECT_EQ(qpu.reserve_qubits(1), 0xFFFFFFFF);
    qpu.release_qubits(39);
    qpu.release_qubits(0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Error: Attempted to allocate 1 qubits, but the QPU has none available.\n");
    EXPECT_EQ(qpu.reserve_qubits(2), 0);
}

/// Limits this process to `count` threads of its user. Requires: the process is a test's child. The
/// limit does not apply to root, so the user changes to nobody first.
void limit_threads(rlim_t count) {
    if (geteuid() == 0 && setuid(65534) != 0) std::_Exit(2);
    rlimit limit{};
    getrlimit(RLIMIT_NPROC, &limit);
    limit.rlim_cur = count;
    if (setrlimit(RLIMIT_NPROC, &limit) != 0) std::_Exit(3);
}

TEST(ResetFailureDeathTest, BlocksThatGetNoThreadAreReleasedTogether) {
    const auto reset_without_threads = [] {
        QPU qpu(0, nullptr);
        qpu.sim_params["num_block_qubits"] = 1;
        limit_threads(3);
        try {
            qpu.reset(8, nullptr);
            std::_Exit(4);
        } catch (const std::system_error& error) {
            if (error.code() != std::errc::resource_unavailable_try_again) std::_Exit(7);
        }
        if (qpu.blocks != nullptr || qpu.block_store != nullptr) std::_Exit(5);
        qpu.finish();
        qpu.sim_params["async"] = 0;
        qpu.sim_params["num_block_qubits"] = 2;
        std::_Exit(qpu.reset(8, nullptr) ? 0 : 6);
    };
    EXPECT_EXIT(reset_without_threads(), testing::ExitedWithCode(0), "");
}

}  // namespace
