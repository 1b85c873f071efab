/// `ByteReader`, which takes the bytes of a fuzzer's input apart.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace Nimbrel::Fuzzing {

/// Reads values from the front of an input. Past its end every byte is 0.
class ByteReader {
  public:
    ByteReader(const std::uint8_t* bytes, std::size_t size) : rest_(bytes, size) {}

    bool empty() const { return rest_.empty(); }

    unsigned byte() {
        if (rest_.empty()) return 0;
        const unsigned value = rest_.front();
        rest_ = rest_.subspan(1);
        return value;
    }
    unsigned below(unsigned limit) { return byte() % limit; }

    unsigned long word() {
        unsigned long value = 0;
        for (unsigned i = 0; i < sizeof value; ++i)
            value |= static_cast<unsigned long>(byte()) << 8 * i;
        return value;
    }
    double number() {
        const unsigned long bits = word();
        double value = 0.0;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }

    /// Up to `count` bytes.
    std::span<const std::uint8_t> bytes(std::size_t count) {
        const auto front = rest_.first(count < rest_.size() ? count : rest_.size());
        rest_ = rest_.subspan(front.size());
        return front;
    }

    template <typename T, std::size_t size>
    const T& one_of(const T (&values)[size]) {
        return values[byte() % size];
    }

  private:
    std::span<const std::uint8_t> rest_;
};

}  // namespace Nimbrel::Fuzzing
