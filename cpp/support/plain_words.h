/// Words of bits in the compiler's own vectors, for `support/vectors.h`. Any thread.
#pragma once

#include <cstddef>
#include <cstring>

namespace Nimbrel {

/// Two words in one vector register.
struct TwoWords {
    using Register = unsigned long __attribute__((vector_size(16)));
    Register bits;

    static TwoWords load(const unsigned long* from) {
        TwoWords loaded;
        std::memcpy(&loaded.bits, from, sizeof loaded.bits);
        return loaded;
    }
    void store(unsigned long* to) const { std::memcpy(to, &bits, sizeof bits); }

    friend TwoWords operator^(TwoWords a, TwoWords b) { return {a.bits ^ b.bits}; }
    friend TwoWords operator&(TwoWords a, TwoWords b) { return {a.bits & b.bits}; }
    friend TwoWords operator|(TwoWords a, TwoWords b) { return {a.bits | b.bits}; }
    /// The bits that are 1 in a and 0 in b.
    friend TwoWords operator-(TwoWords a, TwoWords b) { return {a.bits & ~b.bits}; }
    unsigned long low() const { return bits[0]; }
    unsigned long high() const { return bits[1]; }
};

/// Four words in two vector registers.
class FourWords {
  public:
    static constexpr std::size_t count = 4;

    FourWords() = default;
    FourWords(TwoWords low, TwoWords high) : low_(low), high_(high) {}

    static FourWords zero() { return {}; }
    static FourWords load(const unsigned long* from) {
        return {TwoWords::load(from), TwoWords::load(from + 2)};
    }
    void store(unsigned long* to) const {
        low_.store(to);
        high_.store(to + 2);
    }
    bool is_zero() const {
        const TwoWords either = low_ | high_;
        return (either.low() | either.high()) == 0;
    }
    TwoWords low() const { return low_; }
    TwoWords high() const { return high_; }

    friend FourWords operator^(FourWords a, FourWords b) {
        return {a.low_ ^ b.low_, a.high_ ^ b.high_};
    }
    friend FourWords operator&(FourWords a, FourWords b) {
        return {a.low_ & b.low_, a.high_ & b.high_};
    }
    /// The bits that are 1 in a and 0 in b.
    friend FourWords operator-(FourWords a, FourWords b) {
        return {a.low_ - b.low_, a.high_ - b.high_};
    }

  private:
    TwoWords low_{};
    TwoWords high_{};
};

}  // namespace Nimbrel
