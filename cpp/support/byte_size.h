/// Sizes in bytes as text for users. Callable from any thread.
#pragma once

#include <string>

/// The size with six significant digits, in the largest of the units " TB", " GB", " MB", " KB" and
/// " bytes" that is not above the size. Units differ by a factor of 1024.
std::string human_byte_size(unsigned long bytes);
