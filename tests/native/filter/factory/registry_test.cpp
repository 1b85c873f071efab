#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "core_register/core_register.h"
#include "filter/op_filter.h"

namespace {

using Nimbrel::OpFilter;

OpFilter* new_bit_filter() { return OpFilter::AllocateNew(nullptr, "StreamBitQPU", 0, 0); }

TEST(Registry, HandlesOnlyGrow) {
    const unsigned long first = new_bit_filter()->handle;
    OpFilter::delete_filter(first);
    const unsigned long second = new_bit_filter()->handle;
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(OpFilter::get_filter(first), nullptr);
    EXPECT_EQ(OpFilter::get_filter(second)->handle, second);
    OpFilter::delete_filter(second);
}

TEST(Registry, ZeroNamesNoFilter) { EXPECT_EQ(OpFilter::get_filter(0), nullptr); }

TEST(Registry, DeletingAnUnknownHandleDoesNothing) {
    const OpFilter* filter = new_bit_filter();
    const auto before = OpFilter::filter_registry;
    OpFilter::delete_filter(0);
    OpFilter::delete_filter(filter->handle + 1);
    OpFilter::delete_filter(~0UL);
    EXPECT_EQ(OpFilter::filter_registry, before);
    EXPECT_EQ(filter->qpu->owner, filter);
    OpFilter::delete_filter(filter->handle);
}

TEST(Registry, AFilterOwnsARegisterThatNamesIt) {
    const OpFilter* filter = new_bit_filter();
    EXPECT_EQ(filter->qpu->owner, filter);
    EXPECT_EQ(filter->qpu->num_qubits, 0UL);
    EXPECT_TRUE(filter->reserved_list.empty());
    OpFilter::delete_filter(filter->handle);
}

TEST(Registry, UnknownTypeNamesAreRefusedByName) {
    for (const std::string name : {"", "StreamBitQPU ", "streambitqpu", "Stream"}) {
        try {
            OpFilter::AllocateNew(nullptr, name.c_str(), 0, 0);
            ADD_FAILURE() << name;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "Error: Unknown Filter type: " + name);
        }
    }
}

}  // namespace
