/// A filter of some class for each test, driven by records of few words.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "filter/op_filter.h"

namespace Nimbrel::Testing {

template <typename Filter>
class FilterFixture : public testing::Test {
  protected:
    ~FilterFixture() override { OpFilter::filter_registry.erase(filter.handle); }

    void run(unsigned long opcode, unsigned long target_mask, unsigned long target_offset = 0) {
        QPUOp op{};
        op.opcode = opcode;
        op.target_mask = target_mask;
        op.target_offset = target_offset;
        filter.put_instructions(&op, 1);
    }

    /// What the filter makes of its register where that is a text.
    std::string pulled_text() {
        std::string text;
        filter.pull_state(nullptr, text, 0);
        return text;
    }

    Filter filter;
};

}  // namespace Nimbrel::Testing
