#include "filter/state/op_event.h"

#include <gtest/gtest.h>

namespace {

using Nimbrel::OpEventStack;
using Ids = std::vector<unsigned long>;

TEST(EventStack, PopsTheLatestEntryOfAnId) {
    OpEventStack stack;
    for (const unsigned long id : {7UL, 8UL, 7UL, 9UL}) stack.push(id);
    stack.values = {10, 20, 30, 40};
    stack.pop(7);
    EXPECT_EQ(stack.ids, (Ids{7, 8, 9}));
    EXPECT_EQ(stack.values, (Ids{10, 20, 40}));
    stack.pop(9);
    EXPECT_EQ(stack.ids, (Ids{7, 8}));
    EXPECT_EQ(stack.values, (Ids{10, 20}));
}

TEST(EventStack, AnIdThatIsNotOpenChangesNothing) {
    OpEventStack stack;
    stack.pop(1);
    EXPECT_TRUE(stack.ids.empty());
    stack.push(2);
    stack.pop(1);
    EXPECT_EQ(stack.ids, Ids{2});
    EXPECT_EQ(stack.values, Ids{0});
}

}  // namespace
