#include "remote/export_filter.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "expect_failure.h"
#include "filter/opcodes.h"

namespace {

using namespace Nimbrel;

/// A filter with a temporary file.
class ExportFilter : public testing::Test {
  protected:
    ExportFilter()
        : path(std::filesystem::path(testing::TempDir()) /
               ("nimbrel_export_" + std::to_string(filter->handle) + "_" +
                testing::UnitTest::GetInstance()->current_test_info()->name())) {}

    ~ExportFilter() override {
        end();
        std::filesystem::remove(path);
    }

    /// Opens the file and writes the text before the table, as the creator of such a filter does.
    void open(const char* head = "") {
        filter->out = std::fopen(path.c_str(), "w");
        ASSERT_NE(filter->out, nullptr);
        std::fputs(head, filter->out);
    }

    void put(const std::vector<QPUOp>& records) {
        filter->put_instructions(records.data(), records.size());
    }

    void end() {
        if (!filter) return;
        OpFilter::filter_registry.erase(filter->handle);
        filter.reset();
    }

    std::string text() const {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string status() const {
        std::string result = "replaced";
        filter->get_status(result);
        return result;
    }

    std::unique_ptr<OpFilter_cuQuantum_Export> filter =
        std::make_unique<OpFilter_cuQuantum_Export>();
    std::filesystem::path path;
};

TEST_F(ExportFilter, DoesNothingWithoutAFile) {
    EXPECT_EQ(filter->out, nullptr);
    put({QPUOp{}, QPUOp{}});
    filter->put_instructions(nullptr, 0);
    EXPECT_EQ(filter->out, nullptr);
    EXPECT_EQ(status(), R"({"connected":false})");
    end();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(ExportFilter, AFileIsAConnection) {
    open();
    EXPECT_EQ(status(), R"({"connected":true})");
}

TEST_F(ExportFilter, WritesTheElevenWordsOfARecordAsOneLine) {
    open();
    QPUOp op{};
    op.opcode = OP_FETCH_REPLY;
    op.target_mask = 1;
    op.cond_mask = 0x0123456789ABCDEF;
    op.angle = -2.0;
    op.cond_flag = -1;
    op.read_flag = 10;
    op.cond_neg_mask = 3;
    op.target_offset = 64;
    op.cond_offset = 128;
    op.reserved_a = ~0UL;
    op.reserved_b = 1UL << 63;
    put({op});
    EXPECT_EQ(text(),
              "0x4e6d627210004011LL, 0x0000000000000001LL, 0x0123456789abcdefLL, "
              "0xc000000000000000LL, 0xffffffffffffffffLL, 0x000000000000000aLL, "
              "0x0000000000000003LL, 0x0000000000000040LL, 0x0000000000000080LL, "
              "0xffffffffffffffffLL, 0x8000000000000000LL, \n");
}

TEST_F(ExportFilter, AnOpcodeHasAllItsDigits) {
    open();
    for (const unsigned long opcode : {0UL, 5UL, +OP_X, ~0UL}) {
        QPUOp op{};
        op.opcode = opcode;
        put({op});
    }
    std::istringstream lines(text());
    std::vector<std::string> opcodes;
    for (std::string line; std::getline(lines, line);) opcodes.push_back(line.substr(0, 22));
    EXPECT_EQ(opcodes,
              (std::vector<std::string>{"0x0000000000000000LL, ", "0x0000000000000005LL, ",
                                        "0x4e6d627200000005LL, ", "0xffffffffffffffffLL, "}));
}

TEST_F(ExportFilter, AnAngleIsItsBits) {
    open();
    for (const unsigned long bits :
         {0x3FF0000000000000UL, 0x8000000000000000UL, 0x7FF0000000000001UL, 0xFFF8000000000123UL}) {
        QPUOp op{};
        op.angle = std::bit_cast<double>(bits);
        put({op});
    }
    std::istringstream lines(text());
    std::vector<std::string> angles;
    for (std::string line; std::getline(lines, line);) angles.push_back(line.substr(66, 22));
    EXPECT_EQ(angles,
              (std::vector<std::string>{"0x3ff0000000000000LL, ", "0x8000000000000000LL, ",
                                        "0x7ff0000000000001LL, ", "0xfff8000000000123LL, "}));
}

TEST_F(ExportFilter, EachCallAddsItsLines) {
    open();
    put({QPUOp{}, QPUOp{}});
    put({QPUOp{}});
    std::string line;
    for (int word = 0; word < 11; ++word) line += "0x0000000000000000LL, ";
    line += '\n';
    EXPECT_EQ(text(), line + line + line);
}

TEST_F(ExportFilter, FlushesWithoutRecordsToo) {
    open("head\n");
    ASSERT_EQ(text(), "") << "the head is still in the stream's buffer";
    filter->put_instructions(nullptr, 0);
    EXPECT_EQ(text(), "head\n");
}

TEST_F(ExportFilter, ClosesTheTableAtItsEnd) {
    open("head {\n");
    end();
    EXPECT_EQ(text(), "head {\n};\n");
}

TEST_F(ExportFilter, ClosesATableThatHoldsNothing) {
    open();
    end();
    EXPECT_EQ(text(), "};\n");
}

TEST_F(ExportFilter, ClosesItsFile) {
    open();
    const int descriptor = ::fileno(filter->out);
    end();
    std::FILE* const next = std::fopen(path.c_str(), "r");
    EXPECT_EQ(::fileno(next), descriptor) << "the lowest number that is free";
    std::fclose(next);
}

TEST_F(ExportFilter, IsDestroyedThroughItsBase) {
    open();
    OpFilter* const base = filter.release();
    OpFilter::delete_filter(base->handle);
    EXPECT_EQ(text(), "};\n");
}

/// The operations that the filter does not override.
class ExportFilterDefaults : public ExportFilter {
  protected:
    void SetUp() override { open("head\n"); }

    /// No operation writes into the table.
    void TearDown() override {
        end();
        EXPECT_EQ(text(), "head\n};\n");
    }

    OpFilter& base() { return *filter; }

    complex_t amplitude{1.0, 2.0};
    unsigned long index = 7;
    std::string info = "kept";
};

TEST_F(ExportFilterDefaults, PullingAndPushingAStateRaise) {
    EXPECT_FAILURE(base().pull_state(&amplitude, info, 1),
                   "Error: no QPU data for qc.pull_state()");
    EXPECT_FAILURE(base().pull_state_specific(info, &amplitude, 1, 1),
                   "Error: no QPU data for qc.pull_state_specific()");
    EXPECT_FAILURE(base().push_state(&amplitude, 0, 1), "Error: no QPU data for qc.push_state()");
    EXPECT_FAILURE(base().override_state_buffer(&amplitude, 0),
                   "Error: override_state_buffer is not implemented for this filter type.");
    EXPECT_EQ(info, "kept");
}

TEST_F(ExportFilterDefaults, ProbabilityAndNumberOfTermsRaise) {
    EXPECT_FAILURE(base().peek_read_probability(0, 1, 0.0),
                   "Error: no QPU data for qc.peek_read_probability()");
    EXPECT_FAILURE(base().peek_num_nonzero_terms(),
                   "Error: no QPU data for qc.peek_read_probability()");
}

TEST_F(ExportFilterDefaults, SomeAnswerWithAConstant) {
    EXPECT_EQ(base().normalize(), 1.0);
    EXPECT_EQ(base().check_state(&amplitude, 0.0, false), 1);
    EXPECT_EQ(base().check_state(nullptr, -1.0, true), 1);
    EXPECT_EQ(base().pps(1, 2), 0.0);
}

TEST_F(ExportFilterDefaults, TheOthersDoNothing) {
    base().connect("localhost", 1, 1.0, info);
    base().disconnect(info);
    base().postselect(1, 1);
    base().peek_n_biggest_terms(1, &index, &amplitude);
    base().peek_value(0, &amplitude);
    base().finish();
    base().set_random();
    EXPECT_EQ(info, "kept");
    EXPECT_EQ(index, 7UL);
    EXPECT_EQ(amplitude.re, 1.0);
    EXPECT_EQ(amplitude.im, 2.0);
    EXPECT_EQ(status(), R"({"connected":true})") << "its file is still open";
}

TEST(ExportFilterType, HasNoTypeName) {
    for (const char* name : {"StreamExport", "StreamCuQuantum", "StreamCuQuantumExport",
                             "OpFilter_cuQuantum_Export"}) {
        EXPECT_THROW(OpFilter::AllocateNew(nullptr, name, 0, 0), std::runtime_error) << name;
    }
}

}  // namespace
