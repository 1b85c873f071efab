/// Moving amplitudes between a block and a caller's memory, on the calling thread.
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <utility>
#include <vector>

#include "dense/blocks/core_block.h"
#include "support/array_elements.h"
#include "support/largest_terms.h"

namespace Nimbrel {
namespace {

double probability_of(const complex_t& value) { return value.re * value.re + value.im * value.im; }

/// A term that is among the largest ones found so far.
struct Candidate {
    double probability;
    unsigned long place;  ///< entries of the caller's list come before the slots of this block
    unsigned long index;
    complex_t value;
};

/// Number of entries that earlier blocks filled in the caller's list of n. Zeros fill the rest.
unsigned long num_listed(unsigned long n, const complex_t* values) {
    unsigned long listed = 0;
    while (listed < n && probability_of(element(values, listed)) > 0.0) ++listed;
    return listed;
}

/// Writes the terms to the beginning of the caller's list.
void list_terms(const std::vector<Candidate>& terms, unsigned long* indices, complex_t* values) {
    for (unsigned long i = 0; i < terms.size(); ++i) {
        set_element(indices, i, terms[i].index);
        set_element(values, i, terms[i].value);
    }
}

}  // namespace

void CoreBlock::set_value(unsigned long slot, const complex_t& value) {
    if (!is_raw_zero(value)) all_zero = false;
    settle();
    if (use_threads) finish();
    lock(true, nullptr);
    if (ocl_context == nullptr) block_data[slot] = value;
    unlock(true, nullptr);
}

complex_t CoreBlock::get_value(unsigned long slot) {
    settle();
    lock(true, nullptr);
    const complex_t value = ocl_context == nullptr ? block_data[slot] : complex_t{0.0, 0.0};
    unlock(true, nullptr);
    return value;
}

void CoreBlock::get_all_values(complex_t* out) {
    settle();
    const unsigned long size = num_terms * sizeof(complex_t);
    if (all_zero) {
        // Right also while the clearing task still waits, and then the block is its worker's.
        std::memset(static_cast<void*>(out), 0, size);
        return;
    }
    lock(true, nullptr);
    // The caller may have lent this very memory to the register.
    std::memmove(static_cast<void*>(out), block_data, size);
    unlock(true, nullptr);
}

void CoreBlock::set_all_values(const complex_t* values) {
    settle();
    lock(true, nullptr);
    unsigned long zeros = 0;
    while (zeros < num_terms && is_raw_zero(element(values, zeros))) ++zeros;
    const bool any = zeros < num_terms;
    if (any) {
        all_zero = false;
        std::memmove(static_cast<void*>(block_data), values, num_terms * sizeof(complex_t));
    }
    unlock(true, nullptr);
    if (!any) set_zero();  // after the unlock, since the worker locks the block itself
}

// The early way out leaves the lock counted, which no reader of the count minds.
bool CoreBlock::check_all_values(const complex_t* values, double tolerance) {
    settle();
    lock(true, nullptr);
    for (unsigned long i = 0; i < num_terms; ++i) {
        const complex_t expected = element(values, i);
        if (std::fabs(expected.re - block_data[i].re) > tolerance) return false;
        if (std::fabs(expected.im - block_data[i].im) > tolerance) return false;
    }
    unlock(true, nullptr);
    return true;
}

// The caller's list carries the largest terms from block to block.
void CoreBlock::peek_n_biggest_terms(unsigned long n, unsigned long* indices, complex_t* values) {
    if (n == 0) return;
    settle();
    lock(true, nullptr);
    if (all_zero) return unlock(true, nullptr);
    if (n >> 60 != 0) throw std::length_error("cannot create std::vector larger than max_size()");
    const unsigned long listed = num_listed(n, values);
    LargestTerms<Candidate> largest(n, listed + num_terms);
    for (unsigned long i = 0; i < listed; ++i) {
        const complex_t value = element(values, i);
        largest.keep({probability_of(value), i, element(indices, i), value});
    }
    double threshold = largest.threshold();
    const unsigned long first_index = thread_id << num_block_qubits;
    bool changed = false;
    for (unsigned long i = 0; i < num_terms; ++i) {
        const double probability = probability_of(block_data[i]);
        if (!(probability > threshold)) continue;
        largest.keep({probability, listed + i, first_index + i, block_data[i]});
        threshold = largest.threshold();
        changed = true;
    }
    if (changed) list_terms(std::move(largest).sorted(), indices, values);
    unlock(true, nullptr);
}

}  // namespace Nimbrel
