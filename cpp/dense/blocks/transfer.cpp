/// Moving amplitudes between a block and a caller's memory, on the calling thread.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "dense/blocks/core_block.h"

namespace Nimbrel {
namespace {

// A caller's arrays may begin at any byte, so their elements are copied and not referred to.

template <typename Element>
Element element(const Element* array, unsigned long i) {
    Element value;
    std::memcpy(&value, array + i, sizeof value);
    return value;
}

template <typename Element>
void set_element(Element* array, unsigned long i, const Element& value) {
    std::memcpy(array + i, &value, sizeof value);
}

/// Moves the elements from `first` on one place up; the last one falls out.
template <typename Element>
void make_room(Element* array, unsigned long first, unsigned long last) {
    std::memmove(static_cast<void*>(array + first + 1), array + first,
                 (last - first) * sizeof(Element));
}

double probability_of(const complex_t& value) { return value.re * value.re + value.im * value.im; }

/// The largest terms met so far, largest first, in the caller's two arrays.
class TopTerms {
  public:
    TopTerms(unsigned long n, unsigned long* indices, complex_t* values)
        : indices_(indices), values_(values), probabilities_(n) {
        for (unsigned long i = 0; i < n; ++i)
            probabilities_[i] = probability_of(element(values, i));
    }

    double floor() const { return probabilities_.back(); }

    /// Puts a term above all that are smaller; the last one falls out. Equal terms keep the order
    /// in which they came.
    void insert(unsigned long index, const complex_t& value, double probability) {
        const auto smaller = std::find_if(probabilities_.begin(), probabilities_.end(),
                                          [probability](double p) { return p < probability; });
        const auto place = static_cast<unsigned long>(smaller - probabilities_.begin());
        const unsigned long last = probabilities_.size() - 1;
        make_room(probabilities_.data(), place, last);
        make_room(indices_, place, last);
        make_room(values_, place, last);
        probabilities_[place] = probability;
        set_element(indices_, place, index);
        set_element(values_, place, value);
    }

  private:
    unsigned long* indices_;
    complex_t* values_;
    std::vector<double> probabilities_;
};

}  // namespace

void CoreBlock::set_value(unsigned long slot, const complex_t& value) {
    if (!is_raw_zero(value)) all_zero = false;
    if (use_threads) finish();
    lock(true, nullptr);
    if (ocl_context == nullptr) block_data[slot] = value;
    unlock(true, nullptr);
}

complex_t CoreBlock::get_value(unsigned long slot) {
    lock(true, nullptr);
    const complex_t value = ocl_context == nullptr ? block_data[slot] : complex_t{0.0, 0.0};
    unlock(true, nullptr);
    return value;
}

void CoreBlock::get_all_values(complex_t* out) {
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
    lock(true, nullptr);
    for (unsigned long i = 0; i < num_terms; ++i) {
        const complex_t expected = element(values, i);
        if (std::fabs(expected.re - block_data[i].re) > tolerance) return false;
        if (std::fabs(expected.im - block_data[i].im) > tolerance) return false;
    }
    unlock(true, nullptr);
    return true;
}

void CoreBlock::peek_n_biggest_terms(unsigned long n, unsigned long* indices, complex_t* values) {
    if (n == 0) return;
    lock(true, nullptr);
    if (all_zero) return unlock(true, nullptr);
    if (n >> 60 != 0) throw std::length_error("cannot create std::vector larger than max_size()");
    TopTerms terms(n, indices, values);
    double floor = terms.floor();
    for (unsigned long i = 0; i < num_terms; ++i) {
        const double probability = probability_of(block_data[i]);
        if (!(probability > floor)) continue;
        terms.insert((thread_id << num_block_qubits) + i, block_data[i], probability);
        floor = terms.floor();
    }
    unlock(true, nullptr);
}

}  // namespace Nimbrel
