#include "clifford/tableau/stabilizer_row.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "clifford/tableau/phase_sum.h"
#include "support/bits.h"

namespace {

/// Multiplies the words from `begin` on, in groups of `Words::count`. Returns the number of the
/// first word that is too late for a whole group.
template <typename Words>
std::size_t multiply_words(Stabilizer& left, const Stabilizer& right, std::size_t begin,
                           PhaseSum<Words>& sum) {
    const std::size_t size = left.x.words.size();
    unsigned long* const left_x = left.x.words.data();
    unsigned long* const left_z = left.z.words.data();
    const unsigned long* const right_x = right.x.words.data();
    const unsigned long* const right_z = right.z.words.data();
    std::size_t i = begin;
// Unrolled because each sum depends on the one before: the loop takes a fifth less time.
#pragma GCC unroll 4
    for (; i + Words::count <= size; i += Words::count) {
        const Words lx = Words::load(left_x + i);
        const Words lz = Words::load(left_z + i);
        const Words rx = Words::load(right_x + i);
        const Words rz = Words::load(right_z + i);
        sum.add(lx, lz, rx, rz);
        (lx ^ rx).store(left_x + i);
        (lz ^ rz).store(left_z + i);
    }
    return i;
}

}  // namespace

PauliBits::PauliBits(unsigned bits, std::pmr::memory_resource* memory)
    : words(Nimbrel::words_for_bits(bits), 0, memory),
      bit_count(bits),
      tail_mask(~(~0UL << (bits % Nimbrel::bits_per_word))) {}

bool PauliBits::any() const {
    return std::any_of(words.begin(), words.end(), [](unsigned long word) { return word != 0; });
}

void PauliBits::clear() { std::fill(words.begin(), words.end(), 0); }

bool PauliBits::test(unsigned long qubit) const {
    return (words[Nimbrel::word_of(qubit)] & Nimbrel::bit_of(qubit)) != 0;
}

void PauliBits::set(unsigned long qubit) {
    words[Nimbrel::word_of(qubit)] |= Nimbrel::bit_of(qubit);
}

Stabilizer::Stabilizer(unsigned qubits, std::pmr::memory_resource* memory)
    : length(qubits), x(qubits, memory), z(qubits, memory) {}

void Stabilizer::exchange(Stabilizer& other) {
    std::swap(phase, other.phase);
    std::swap_ranges(x.words.begin(), x.words.end(), other.x.words.begin());
    std::swap_ranges(z.words.begin(), z.words.end(), other.z.words.begin());
}

void Stabilizer::multiply(const Stabilizer& right) {
    if (length != right.length) throw std::runtime_error("Incompatible stabilizer lengths");
    PhaseSum<OneWord> sum;
    std::size_t done = 0;
    if (x.words.size() >= FourWords::count) {
        PhaseSum<FourWords> wide;
        done = multiply_words(*this, right, 0, wide);
        sum = folded(wide);
    }
    multiply_words(*this, right, done, sum);
    phase = static_cast<unsigned short>((phase + right.phase + exponent_of(sum)) & 3);
}
