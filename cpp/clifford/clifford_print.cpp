// The tableau as text, and the refusal of amplitudes.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "clifford/clifford_filter.h"
#include "support/available_memory.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Appends the lowest `top` bits of a word as characters, the highest first.
void append_bits(std::string& text, unsigned long word, unsigned long top) {
    while (top-- != 0) text += (word >> top & 1) != 0 ? '1' : '0';
}

// The text has one character for each qubit, and up to 64 qubits the highest qubit comes first.
// Above that, if the last word is partial, the first word is written with the length of the last
// one and the last word in full. Clients rely on these columns.
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

/// Throws if the memory is too small for a text of `bytes` and the caller's copy of it. The text
/// may have memory already.
void require_memory_for_text(unsigned long bytes, const std::string& text, unsigned qubits) {
    if (const auto shortage = find_shortage(2 * bytes - std::min(bytes, text.capacity()))) {
        throw std::runtime_error("Error: could not allocate the text of a tableau of " +
                                 std::to_string(qubits) + " qubits." + shortage->text());
    }
}

}  // namespace

void OpFilter_CliffordQPUSim::pull_state(complex_t* /*buffer*/, std::string& text,
                                         unsigned long /*size*/) {
    require_state();
    const unsigned long width = 2UL * state->num_qubits() + 3;
    const unsigned long bytes = text.size() + (2UL * state->num_rows() + 1) * (width + 1);
    require_memory_for_text(bytes, text, state->num_qubits());
    text.reserve(bytes);
    state->for_each_row([&](const Stabilizer& row) { append_row(text, row); },
                        [&] { text.append(width, '-') += '\n'; });
}

void OpFilter_CliffordQPUSim::push_state(const complex_t* /*src*/, unsigned long /*selector*/,
                                         unsigned long /*num_terms*/) {
    throw std::runtime_error("qc.push_state() has not been implemented for the Clifford sim.");
}

}  // namespace Nimbrel
