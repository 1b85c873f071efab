#include "clifford/tableau/string_product.h"
#include "support/processor_features.h"

namespace {

/// Strings with fewer words a part leave most of a 512-bit vector unused.
constexpr unsigned fewest_wide_words = 4;

bool wide_strings_in_use = Nimbrel::this_processor().avx512f;

}  // namespace

void use_wide_strings(bool wide) {
    wide_strings_in_use = wide && Nimbrel::this_processor().avx512f;
}

MultiplyStrings fastest_product(const StringShape& shape) {
    const bool wide = wide_strings_in_use && shape.words >= fewest_wide_words;
    return wide ? multiply_wide : narrow_product(shape);
}
