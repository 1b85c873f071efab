/// Sizes in bytes as text for people.
#pragma once

#include <string>

/// The size in the largest unit of " TB", " GB", " MB", " KB" and " bytes" that it fills, units of
/// 1024, with six significant digits.
std::string human_byte_size(unsigned long bytes);
