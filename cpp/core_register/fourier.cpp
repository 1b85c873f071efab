#include <bit>

#include "core_register/core_register.h"
#include "support/bits.h"

namespace Nimbrel {

// `top_down` turns the order of the qubits and nothing else; the angles are positive either way.
unsigned long QPU::QFT(unsigned long mask, bool measure, bool top_down, bool /*unused*/) {
    verify_allocated();
    unsigned long to_come = mask & qubit_mask;
    classical_qubits &= ~to_come;
    const auto take_next = [top_down](unsigned long& qubits) {
        const unsigned long qubit = top_down ? std::bit_floor(qubits) : lowest_bit(qubits);
        qubits ^= qubit;
        return qubit;
    };

    unsigned long outcome = 0;
    while (to_come != 0) {
        const unsigned long qubit = take_next(to_come);
        hadamard(qubit, 0, 0, 0);
        double angle = 90.0;
        for (unsigned long later = to_come; later != 0; angle *= 0.5) {
            phase(angle, 0, qubit | take_next(later), 0, 0);
        }
        if (measure) outcome |= read(qubit, 0, 0);
    }
    removable_finish();
    return outcome;
}

}  // namespace Nimbrel
