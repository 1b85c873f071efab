// Amplitudes to and from the caller's arrays.
#include <algorithm>
#include <bit>
#include <cmath>
#include <stdexcept>

#include "sparse/sparse_filter.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Terms of one setting of the qubits outside a mask, and where each goes.
class Slice {
  public:
    /// `mask` is a mask of key bits, `member` the key of some term of the slice.
    Slice(unsigned long mask, unsigned long member) : mask_(mask), member_(member) {}

    bool holds(unsigned long key) const { return ((key ^ member_) & ~mask_) == 0; }

    /// The key's bits on the mask side by side, the lowest of them in bit 0.
    unsigned long place_of(unsigned long key) const {
        unsigned long place = 0;
        unsigned long next = 1;
        for_each_bit(mask_, [&](unsigned long bit) {
            if ((key & bit) != 0) place |= next;
            next <<= 1;
        });
        return place;
    }

  private:
    unsigned long mask_;
    unsigned long member_;
};

/// Key of the term of largest magnitude, the first of equals; 0 if none is above 0.
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
        if (slice.holds(term.key)) needed = std::max(needed, slice.place_of(term.key) + 1);
    }
    return {.amplitudes = needed, .writable = true};
}

// A check ends at the first term that differs, so the array need not reach the terms behind it.
ArrayNeeds OpFilter_SparseSVSim::check_state_needs(const complex_t* expected, unsigned long length,
                                                   double tolerance) const {
    const unsigned long spanned = terms_spanned(length);
    if (spanned <= length) return {.amplitudes = spanned};
    for (const term_t& term : terms) {
        const unsigned long index = term.key >> 1;
        if (index >= length) break;
        if (differs(term.amplitude, expected[index], tolerance)) return {.amplitudes = length};
    }
    return {.amplitudes = spanned};
}

void OpFilter_SparseSVSim::pull_state(complex_t* dest, std::string& /*info*/,
                                      unsigned long length) {
    std::fill_n(dest, length, complex_t{0.0, 0.0});
    for (const term_t& term : terms) dest[term.key >> 1] = term.amplitude;
}

void OpFilter_SparseSVSim::pull_state_specific(std::string& /*message*/, complex_t* dest,
                                               unsigned long length, unsigned long mask) {
    const Slice slice(key_bits(mask), largest_key(terms));
    std::fill_n(dest, length, complex_t{0.0, 0.0});
    for (const term_t& term : terms) {
        if (slice.holds(term.key)) dest[slice.place_of(term.key)] = term.amplitude;
    }
}

void OpFilter_SparseSVSim::push_state(const complex_t* source, unsigned long mask,
                                      unsigned long length) {
    if (mask != 0) {
        throw std::runtime_error("Partial push_state is not yet implemented for sparse_sv.");
    }
    const auto is_kept = [this](const complex_t& a) {
        return !is_raw_zero(a) && !(prune_threshold > squared_magnitude(a));
    };
    // Counted first: a vast array of few terms must not claim its own size, and a failed claim must
    // leave the old state.
    const auto kept = static_cast<std::size_t>(std::count_if(source, source + length, is_kept));
    if (terms.capacity() < kept) {
        require_memory_for_terms("push_state() could not allocate a list", kept);
        TermList larger;
        larger.reserve(kept);
        terms.swap(larger);
    }
    terms.clear();
    index_bits = qubit_mask | (std::bit_ceil(length) - 1);
    for (unsigned long i = 0; i < length; ++i) {
        if (is_kept(source[i])) terms.push_back({i * 2, source[i]});
    }
}

int OpFilter_SparseSVSim::check_state(const complex_t* expected, double tolerance,
                                      bool /*flag*/) const {
    for (const term_t& term : terms) {
        if (differs(term.amplitude, expected[term.key >> 1], tolerance)) return 0;
    }
    return 1;
}

}  // namespace Nimbrel
