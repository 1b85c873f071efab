/// Random numbers and fingerprints that are the same with every compiler and library. Plain values.
#pragma once

#include <bit>
#include <string_view>

namespace Nimbrel::Testing {

/// The SplitMix64 generator. The distributions of the standard library differ between libraries,
/// so this class has its own. Callers draw one number a statement, because the order of a call's
/// arguments differs between compilers.
class RandomWords {
  public:
    explicit RandomWords(unsigned long seed) : state_(seed) {}

    unsigned long next() {
        state_ += 0x9E3779B97F4A7C15UL;
        unsigned long mixed = state_;
        mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9UL;
        mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EBUL;
        return mixed ^ mixed >> 31;
    }
    /// A number below `count`, nearly uniform. Requires: `count` is not 0.
    unsigned long below(unsigned long count) { return (next() >> 11) % count; }
    bool one_in(unsigned long count) { return below(count) == 0; }
    /// A multiple of 2^-52 in [-1, 1).
    double plus_minus() { return static_cast<double>(next() >> 11) * 0x1p-52 - 1.0; }
    /// `count` different bits out of the lowest `width`, or all of them if there are not so many.
    unsigned long bits(unsigned long count, unsigned long width) {
        unsigned long mask = 0;
        for (unsigned long i = 0; i < count; ++i) mask |= 1UL << below(width);
        return mask;
    }

  private:
    unsigned long state_;
};

/// A hash of a sequence of words, numbers and texts.
class Fingerprint {
  public:
    void add(unsigned long word) {
        hash_ = (std::rotl(hash_, 23) ^ word) * 0xD1342543DE82EF95UL + 0x2545F4914F6CDD1DUL;
    }
    void add(double number) { add(std::bit_cast<unsigned long>(number)); }
    void add(std::string_view text) {
        add(text.size());
        for (const char letter : text) add(0UL + static_cast<unsigned char>(letter));
    }
    unsigned long value() const { return hash_ ^ hash_ >> 32; }

  private:
    unsigned long hash_ = 0;
};

}  // namespace Nimbrel::Testing
