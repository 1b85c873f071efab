#include "clifford/tableau/string_product.h"

namespace {

/// Strings with fewer words a part leave most of a 512-bit vector unused.
constexpr unsigned fewest_wide_words = 4;

bool processor_has_wide_vectors() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") != 0;
}

bool wide_strings_in_use = processor_has_wide_vectors();

}  // namespace

void use_wide_strings(bool wide) { wide_strings_in_use = wide && processor_has_wide_vectors(); }

MultiplyStrings fastest_product(const StringShape& shape) {
    const bool wide = wide_strings_in_use && shape.words >= fewest_wide_words;
    return wide ? multiply_wide : narrow_product(shape);
}
