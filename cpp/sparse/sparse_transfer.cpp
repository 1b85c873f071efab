// Transfer of amplitudes between the term list and the caller's arrays.
#include <algorithm>
#include <bit>
#include <cmath>
#include <stdexcept>

#include "sparse/sparse_filter.h"
#include "support/array_elements.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// The terms that agree on all qubits outside a mask.
class Slice {
  public:
    /// `mask` is a mask of key bits, `member` the key of one term of the slice.
    Slice(unsigned long mask, unsigned long member) : mask_(mask), member_(member) {}

    bool contains(unsigned long key) const { return ((key ^ member_) & ~mask_) == 0; }

    /// The masked bits of the key, packed: the lowest masked bit becomes bit 0.
    unsigned long packed_index(unsigned long key) const {
        unsigned long index = 0;
        unsigned long next = 1;
        for_each_bit(mask_, [&](unsigned long bit) {
            if ((key & bit) != 0) index |= next;
            next <<= 1;
        });
        return index;
    }

  private:
    unsigned long mask_;
    unsigned long member_;
};

/// Key of the term of largest magnitude, the first in the list among equals. 0 if all magnitudes
/// are 0.
unsigned long largest_key(const TermList& terms) {
    unsigned long key = 0;
    double largest = 0.0;
    for (const term_t& term : terms) {
        const double magnitude = squared_magnitude(term.amplitude);
        if (magnitude > largest) {
            largest = magnitude;
            key = term.key;
        }
    }
    return key;
}

bool differs(double a, double b, double tolerance) { return std::fabs(a - b) > tolerance; }

bool differs(const complex_t& a, const complex_t& b, double tolerance) {
    return differs(a.re, b.re, tolerance) || differs(a.im, b.im, tolerance);
}

}  // namespace

OpFilter_SparseSVSim::OpFilter_SparseSVSim() : OpFilter(this) {}

unsigned long OpFilter_SparseSVSim::terms_spanned(unsigned long length) const {
    if (length > index_bits) return index_bits + 1;
    unsigned long spanned = 0;
    for (const term_t& term : terms) spanned = std::max(spanned, (term.key >> 1) + 1);
    return spanned;
}

ArrayNeeds OpFilter_SparseSVSim::pull_state_needs(unsigned long length) const {
    return {.amplitudes = terms_spanned(length), .writable = true};
}

ArrayNeeds OpFilter_SparseSVSim::pull_state_specific_needs(unsigned long selector,
                                                           unsigned long length) const {
    const unsigned long mask = key_bits(selector);
    const unsigned long slice_size = 1UL << std::popcount(mask);
    if (length >= slice_size) return {.amplitudes = slice_size, .writable = true};
    const Slice slice(mask, largest_key(terms));
    unsigned long needed = 0;
    for (const term_t& term : terms) {
        if (slice.contains(term.key)) needed = std::max(needed, slice.packed_index(term.key) + 1);
    }
    return {.amplitudes = needed, .writable = true};
}

// A check ends at the first term that differs, so the array may be too short for later terms.
ArrayNeeds OpFilter_SparseSVSim::check_state_needs(const complex_t* expected, unsigned long length,
                                                   double tolerance) const {
    const unsigned long spanned = terms_spanned(length);
    if (spanned <= length) return {.amplitudes = spanned};
    for (const term_t& term : terms) {
        const unsigned long index = term.key >> 1;
        if (index >= length) break;
        if (differs(term.amplitude, element(expected, index), tolerance)) {
            return {.amplitudes = length};
        }
    }
    return {.amplitudes = spanned};
}

void OpFilter_SparseSVSim::pull_state(complex_t* dest, std::string& /*info*/,
                                      unsigned long length) {
    clear_elements(dest, length);
    for (const term_t& term : terms) set_element(dest, term.key >> 1, term.amplitude);
}

void OpFilter_SparseSVSim::pull_state_specific(std::string& /*message*/, complex_t* dest,
                                               unsigned long length, unsigned long mask) {
    const Slice slice(key_bits(mask), largest_key(terms));
    clear_elements(dest, length);
    for (const term_t& term : terms) {
        if (!slice.contains(term.key)) continue;
        set_element(dest, slice.packed_index(term.key), term.amplitude);
    }
}

void OpFilter_SparseSVSim::push_state(const complex_t* source, unsigned long mask,
                                      unsigned long length) {
    if (mask != 0) {
        throw std::runtime_error("Partial push_state is not yet implemented for sparse_sv.");
    }
    const auto is_stored = [this](const complex_t& a) {
        return !is_raw_zero(a) && !(prune_threshold > squared_magnitude(a));
    };
    // The terms are counted first, so that a large array of few terms needs little memory. The new
    // list is allocated before the old one is freed, so that a failure keeps the state.
    std::size_t stored = 0;
    for (unsigned long i = 0; i < length; ++i) stored += is_stored(element(source, i)) ? 1U : 0U;
    if (terms.capacity() < stored) {
        require_memory_for_terms("push_state() could not allocate a list", stored);
        TermList larger;
        larger.reserve(stored);
        terms.swap(larger);
    }
    terms.clear();
    index_bits = qubit_mask | (std::bit_ceil(length) - 1);
    for (unsigned long i = 0; i < length; ++i) {
        const complex_t amplitude = element(source, i);
        if (is_stored(amplitude)) terms.push_back({i * 2, amplitude});
    }
}

int OpFilter_SparseSVSim::check_state(const complex_t* expected, double tolerance,
                                      bool /*flag*/) const {
    for (const term_t& term : terms) {
        if (differs(term.amplitude, element(expected, term.key >> 1), tolerance)) return 0;
    }
    return 1;
}

}  // namespace Nimbrel
