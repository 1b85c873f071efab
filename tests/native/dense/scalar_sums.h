/// The native truth of sums, draws and lists over amplitudes: plain doubles, one slot at a time.
#pragma once

#include <cmath>
#include <vector>

#include "dense/scalar_gates.h"

namespace Nimbrel::Testing {

/// Sums the slots that agree with `value` on `mask`, up to `limit` when it is above 0.
inline double scalar_read_probability(const complex_t* data, unsigned long n, unsigned long value,
                                      unsigned long mask, double limit) {
    double re = 0.0;
    double im = 0.0;
    for (unsigned long i = 0; i < n; ++i) {
        if (((i ^ value) & mask) != 0) continue;
        const complex_t& x = data[i];
        re = mask != 0 ? std::fma(x.re, x.re, re) : re + x.re * x.re;
        im = mask != 0 ? std::fma(x.im, x.im, im) : im + x.im * x.im;
        if (limit > 0.0 && re + im >= limit) break;
    }
    return re + im;
}

/// The slot at which the running sum reaches `target`; the last one when it does not.
inline unsigned long scalar_index(const complex_t* data, unsigned long n, double target) {
    double sum = 0.0;
    for (unsigned long i = 0; i < n; ++i) {
        if (all_bits_zero(data[i])) continue;
        sum += data[i].re * data[i].re + data[i].im * data[i].im;
        if (sum >= target) return i;
    }
    return n - 1;
}

inline void scalar_scale(complex_t* data, unsigned long n, double factor) {
    for (unsigned long i = 0; i < n; ++i) {
        if (!all_bits_zero(data[i])) data[i] = {data[i].re * factor, data[i].im * factor};
    }
}

inline void scalar_collapse(complex_t* data, unsigned long n, unsigned long mask,
                            unsigned long value) {
    for (unsigned long i = 0; i < n; ++i) {
        if ((i & mask) != value) data[i] = {0.0, 0.0};
    }
}

inline void scalar_zero_mask(complex_t* data, unsigned long n, unsigned long mask) {
    for (unsigned long i = 0; i < n; ++i) {
        if ((i & mask) != 0) data[i] = {0.0, 0.0};
    }
}

/// Merges a block's terms into a descending list; `first` is the term index of its slot 0.
inline void scalar_top_terms(const complex_t* data, unsigned long n, unsigned long first,
                             std::vector<unsigned long>& indices, std::vector<complex_t>& values) {
    const auto probability = [](const complex_t& x) { return x.re * x.re + x.im * x.im; };
    for (unsigned long i = 0; i < n; ++i) {
        const double p = probability(data[i]);
        if (!(p > probability(values.back()))) continue;
        std::size_t q = 0;
        while (!(probability(values[q]) < p)) ++q;
        indices.pop_back();
        values.pop_back();
        indices.insert(indices.begin() + static_cast<std::ptrdiff_t>(q), first + i);
        values.insert(values.begin() + static_cast<std::ptrdiff_t>(q), data[i]);
    }
}

}  // namespace Nimbrel::Testing
