/// The allocator behind `operator new` of a test program with `replaced_new.cpp`.
#pragma once

#include <cstddef>

namespace Nimbrel::Testing {

/// Memory for `operator new`, for `std::free`, or null for none. The program defines it.
void* allocate_for_new(std::size_t bytes);

}  // namespace Nimbrel::Testing
