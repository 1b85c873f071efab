#include <cstdio>
#include <sstream>

#include "core_register/core_register.h"

namespace Nimbrel {
namespace {

std::string heading(int line) {
    if (line < 0) return "  State vector:\n";
    return "  State vector at line " + std::to_string(line) + "\n";
}

bool is_shown(const complex_t& amplitude, double threshold) {
    if (threshold <= 0.0) return true;
    return !is_raw_zero(amplitude) &&
           amplitude.re * amplitude.re + amplitude.im * amplitude.im >= threshold;
}

}  // namespace

std::string QPU::print_state_vector_to_string(int line, double threshold,
                                              unsigned long max_values) const {
    std::ostringstream text;
    text.exceptions(std::ios::badbit);  // without memory the text would be cut short in silence
    text << heading(line);
    unsigned long shown = 0;
    for (unsigned long index = 0; index < num_terms; ++index) {
        const complex_t amplitude = get_value(index);
        if (!is_shown(amplitude, threshold)) continue;
        text << "    |" << index << "> (" << amplitude.re << ", " << amplitude.im << ")\n";
        // The note follows the first term above the limit, even if no other term follows it.
        if (++shown > max_values) {
            text << "...output truncated to " << max_values << " values.\n";
            break;
        }
    }
    return text.str();
}

void QPU::print_state_vector(int line, double threshold, unsigned long max_values) const {
    const std::string text = print_state_vector_to_string(line, threshold, max_values);
    std::fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace Nimbrel
