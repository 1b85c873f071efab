#include <stdexcept>

#include "bit/bit_filter.h"
#include "filter/shared_records.h"
#include "support/bits.h"

namespace Nimbrel {

void OpFilter_BitQPUSim::pull_state(complex_t* /*buffer*/, std::string& text,
                                    unsigned long /*count*/) {
    require_register();
    text.reserve(text.size() + num_qubits);
    for (unsigned long qubit = 0; qubit < num_qubits; ++qubit) {
        text += (bit_values[word_of(qubit)] & bit_of(qubit)) != 0 ? '1' : '0';
    }
}

// The text names the Clifford simulator on purpose: front ends compare with it.
void OpFilter_BitQPUSim::push_state(const complex_t* /*src*/, unsigned long /*selector*/,
                                    unsigned long /*num_terms*/) {
    throw std::runtime_error("qc.push_state() has not been implemented for the Clifford sim.");
}

double OpFilter_BitQPUSim::peek_read_probability(unsigned long value, unsigned long mask,
                                                 double /*limit*/) {
    require_register();
    require_peek_mask(mask);
    return ((value ^ bit_values[0]) & mask) == 0 ? 1.0 : 0.0;
}

void OpFilter_BitQPUSim::postselect(unsigned long value, unsigned long mask) {
    require_register();
    require_peek_mask(mask);  // the text names the other operation
    if (((value ^ bit_values[0]) & mask) != 0) {
        throw std::runtime_error("qc.postselect() no non-zero terms match the desired value.");
    }
}

}  // namespace Nimbrel
