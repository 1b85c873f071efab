/// What a run shows to its caller, as a list that two runs are compared by.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

#include "support/complex.h"

namespace Nimbrel::Fuzzing {

/// The results of a run in their order, each as a word.
class Observation {
  public:
    /// Without the signs of zeros: a gate skips a block of zeros, so they depend on the blocks.
    explicit Observation(bool zeros_have_signs = true) : zeros_have_signs_(zeros_have_signs) {}

    void add(unsigned long word) { words_.push_back(word); }
    void add(std::span<const unsigned long> words) {
        words_.insert(words_.end(), words.begin(), words.end());
    }

    /// The bits of a number. The sign and the payload of a not-a-number depend on the width of the
    /// vectors and are left out.
    void add_number(double number) {
        if (number == 0.0 && !zeros_have_signs_) number = 0.0;
        add(std::bit_cast<unsigned long>(
            std::isnan(number) ? std::numeric_limits<double>::quiet_NaN() : number));
    }
    void add_amplitudes(std::span<const complex_t> amplitudes) {
        words_.reserve(words_.size() + 2 * amplitudes.size());
        for (const complex_t& amplitude : amplitudes) {
            add_number(amplitude.re);
            add_number(amplitude.im);
        }
    }
    void add_text(std::string_view text) {
        add(text.size());
        add(std::hash<std::string_view>()(text));
    }

    std::span<const unsigned long> words() const { return words_; }

  private:
    bool zeros_have_signs_;
    std::vector<unsigned long> words_;
};

}  // namespace Nimbrel::Fuzzing
