// What can be asked of the tableau from outside a program.
#include <bit>
#include <stdexcept>

#include "clifford/clifford_filter.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// A word's bits as characters from `top` - 1 down.
void append_bits(std::string& text, unsigned long word, unsigned long top) {
    while (top-- != 0) text += (word >> top & 1) != 0 ? '1' : '0';
}

// A partial first word is as short as the last word ought to be, and the last one is written in
// full. So the length is right at every width, and up to 64 qubits the highest comes first.
void append_bits(std::string& text, const PauliBits& bits) {
    const unsigned long partial = bits.bit_count % bits_per_word;
    unsigned long top = partial != 0 ? partial : bits_per_word;
    for (const unsigned long word : bits.words) {
        append_bits(text, word, top);
        top = bits_per_word;
    }
}

void append_row(std::string& text, const Stabilizer& row) {
    text += static_cast<char>('0' + row.phase);
    text += ' ';
    append_bits(text, row.x);
    text += '|';
    append_bits(text, row.z);
    text += '\n';
}

/// Probability of reading 1, by a row that `reduced_z` gave.
double probability_of_one(const Stabilizer& row) {
    if (!row.is_identity() || (row.phase & 1) != 0) return 0.5;
    return row.phase == 2 ? 1.0 : 0.0;
}

}  // namespace

void OpFilter_CliffordQPUSim::pull_state(complex_t* /*buffer*/, std::string& text,
                                         unsigned long /*size*/) {
    require_state();
    const StabilizerState& rows = tableau();
    const unsigned long width = 2UL * rows.num_qubits + 3;
    text.reserve(text.size() + (2UL * rows.num_rows + 1) * (width + 1));
    for (unsigned i = 0; i < rows.num_rows; ++i) append_row(text, rows.destabilizers[i]);
    text.append(width, '-') += '\n';
    for (unsigned i = 0; i < rows.num_rows; ++i) append_row(text, rows.stabilizers[i]);
}

void OpFilter_CliffordQPUSim::push_state(const complex_t* /*src*/, unsigned long /*selector*/,
                                         unsigned long /*num_terms*/) {
    throw std::runtime_error("qc.push_state() has not been implemented for the Clifford sim.");
}

double OpFilter_CliffordQPUSim::peek_read_probability(unsigned long value, unsigned long mask,
                                                      double /*limit*/) {
    require_state();
    if (mask == 0) {
        throw std::runtime_error(
            "qc.peek_read_probability() must specify at least one qubit to measure.");
    }
    if (!std::has_single_bit(mask)) {
        throw std::runtime_error(
            "qc.peek_read_probability() in Clifford sim must specify exactly one qubit to "
            "measure.");
    }
    const auto qubit = static_cast<unsigned long>(std::countr_zero(mask));
    require_inside(qubit);
    const double one = probability_of_one(tableau().reduced_z(qubit));
    return (value & mask) != 0 ? one : 1.0 - one;
}

// The probability is asked through the virtual operation, whose answer decides; the walk over the
// bits serves a filter that answers for several qubits at once.
void OpFilter_CliffordQPUSim::postselect(unsigned long value, unsigned long mask) {
    if (mask == 0) {
        throw std::runtime_error("qc.postselect() must specify at least one qubit to postselect.");
    }
    const double probability = peek_read_probability(value, mask, 0.0);
    if (probability == 0.0) {
        throw std::runtime_error("qc.postselect() no non-zero terms have the desired value.");
    }
    if (probability == 1.0) return;
    require_state();
    for_each_bit(mask, [&](unsigned long bit) {
        const auto qubit = static_cast<unsigned long>(std::countr_zero(bit));
        require_inside(qubit);
        const unsigned short phase = (value & bit) != 0 ? 2 : 0;
        Stabilizer row = tableau().reduced_z(qubit);
        if (row.is_identity() && (row.phase & 1) == 0 && row.phase != phase) {
            throw std::runtime_error("qc.postselect(): no non-zero terms match desired value.");
        }
        row.phase = phase;
        tableau().project_qubit<Clifford{3}>(row, qubit);
    });
}

}  // namespace Nimbrel
