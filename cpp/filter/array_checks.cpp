#include "filter/array_checks.h"

#include <stdexcept>
#include <string>

namespace Nimbrel {

void require_length(const char* operation, const char* elements, unsigned long needed,
                    unsigned long given) {
    if (given >= needed) return;
    throw std::runtime_error(std::string("Error: ") + operation + "() needs an array of " +
                             std::to_string(needed) + " " + elements + ", but was given " +
                             std::to_string(given) + ".");
}

void require_amplitudes(const char* operation, unsigned long needed, unsigned long given) {
    require_length(operation, "amplitudes", needed, given);
}

void require_writable(const char* operation, const CallerArrays& arrays) {
    if (arrays.writable) return;
    throw std::runtime_error(std::string("Error: ") + operation +
                             "() needs an array that it may write to.");
}

void require_biggest_arrays(unsigned long count, const CallerArrays& arrays) {
    require_length("peek_n_biggest_terms", "indices", count, arrays.indices);
    require_amplitudes("peek_n_biggest_terms", count, arrays.amplitudes);
    require_writable("peek_n_biggest_terms", arrays);
}

void require_peek_array(const CallerArrays& arrays) {
    require_amplitudes("peek_value", 1, arrays.amplitudes);
    require_writable("peek_value", arrays);
}

}  // namespace Nimbrel
