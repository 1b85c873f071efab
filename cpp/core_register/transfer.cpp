#include <stdexcept>
#include <string>

#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "support/array_elements.h"

namespace Nimbrel {

void QPU::pull_state_sv(complex_t* dest, unsigned long /*length*/) {
    verify_allocated();
    finish();
    for (unsigned long i = 0; i < num_blocks; ++i, dest += terms_per_block) {
        blocks[i]->get_all_values(dest);
    }
    finish();
}

bool QPU::check_state(const complex_t* expected, double tolerance, bool /*flag*/) const {
    verify_allocated();
    for (unsigned long i = 0; i < num_blocks; ++i, expected += terms_per_block) {
        if (!blocks[i]->check_all_values(expected, tolerance)) return false;
    }
    return true;
}

void QPU::peek_n_biggest_terms(unsigned long count, unsigned long* indices, complex_t* amplitudes) {
    verify_allocated();
    if (count == 0) return;
    clear_elements(indices, count);
    clear_elements(amplitudes, count);
    finish();
    // Each block merges its terms into the list, behind equal terms of the blocks before it.
    for (unsigned long i = 0; i < num_blocks; ++i) {
        blocks[i]->peek_n_biggest_terms(count, indices, amplitudes);
    }
    finish();
}

void QPU::peek_value(unsigned long index, complex_t* dest) const {
    verify_allocated();
    if (index >= num_terms) {
        throw std::runtime_error("Error: peek_value() index " + std::to_string(index) +
                                 " lies outside the register of " + std::to_string(num_terms) +
                                 " terms.");
    }
    set_element(dest, 0, get_value(index));
}

}  // namespace Nimbrel
