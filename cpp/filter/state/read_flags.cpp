#include <algorithm>

#include "filter/state/qpu_base.h"
#include "support/bits.h"

namespace Nimbrel {

unsigned long QPU_Base::flag_position(long flag) const {
    const unsigned long number = magnitude(flag);
    // Nearly all flag numbers are below the capacity, and a 64-bit division costs more than the
    // rest of this access.
    return number < read_flag_capacity ? number : number % read_flag_capacity;
}

bool QPU_Base::is_stored(unsigned long position) const {
    return word_of(position) < read_flags.size();
}

bool QPU_Base::stored_bit(unsigned long position) const {
    return (read_flags[word_of(position)] & bit_of(position)) != 0;
}

void QPU_Base::store_bit(unsigned long position, bool bit) {
    if (!is_stored(position)) read_flags.resize(word_of(position) + 1, 0);
    unsigned long& word = read_flags[word_of(position)];
    word = bit ? word | bit_of(position) : word & ~bit_of(position);
}

/// Words of the first allocation: 512 flags, which most programs never exceed.
constexpr std::size_t first_capacity = 8;

void QPU_Base::reserve_read_flags(long first, unsigned long count) {
    std::size_t words = 0;
    auto number = static_cast<unsigned long>(first);  // a run may wrap past the highest flag
    for (unsigned long i = 0; i < count; ++i, ++number) {
        const auto flag = static_cast<long>(number);
        if (magnitude(flag) > 1) words = std::max(words, word_of(flag_position(flag)) + 1);
    }
    // Grown as a vector grows by itself, so that a program with ever higher flags copies few words.
    const std::size_t capacity = read_flags.capacity();
    if (words > capacity) read_flags.reserve(std::max({words, 2 * capacity, first_capacity}));
}

long QPU_Base::get_read_flag(long flag) const {
    if (magnitude(flag) <= 1) return flag == 1 ? 1 : 0;
    const unsigned long position = flag_position(flag);
    if (!is_stored(position)) return 0;
    return stored_bit(position) != (flag < 0) ? 1 : 0;
}

void QPU_Base::set_read_flag(long flag, long value) {
    if (magnitude(flag) <= 1) return;
    const bool bit = (value & 1) != 0;
    store_bit(flag_position(flag), bit != (flag < 0));
}

bool QPU_Base::flag_condition(long cond_flag) const {
    if (magnitude(cond_flag) <= 1) return cond_flag != -1;
    const unsigned long position = flag_position(cond_flag);
    return is_stored(position) && stored_bit(position) == (cond_flag > 0);
}

}  // namespace Nimbrel
