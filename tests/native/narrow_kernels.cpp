// Linked into a test program to run all of its tests on the 256-bit kernels.
#include <gtest/gtest.h>

#include "dense/blocks/kernels/width.h"

namespace {

class NarrowKernels : public testing::Environment {
  public:
    void SetUp() override { Nimbrel::use_wide_kernels(false); }
};

const auto* const narrow = testing::AddGlobalTestEnvironment(new NarrowKernels);

}  // namespace
