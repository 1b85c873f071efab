/// A fixture with a filter of a given class, which runs records with few fields.
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

    /// The text that `pull_state` of a bit or Clifford filter writes.
    std::string pulled_text() {
        std::string text;
        filter.pull_state(nullptr, text, 0);
        return text;
    }

    Filter filter;
};

}  // namespace Nimbrel::Testing
