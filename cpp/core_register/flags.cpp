#include <stdexcept>
#include <string>

#include "core_register/core_register.h"
#include "support/bits.h"

namespace Nimbrel {

unsigned long QPU::fetch_read_result(long first, unsigned long count) {
    if (count > bits_per_word) {
        throw std::runtime_error("Error: fetch_read_result() was asked for " +
                                 std::to_string(count) +
                                 " read flags, but its result holds 64 at most.");
    }
    unsigned long result = 0;
    for (unsigned long i = 0; i < count; ++i) {
        // Unsigned addition: a run may start at the highest flag number and wrap.
        const auto flag = static_cast<long>(static_cast<unsigned long>(first) + i);
        result |= static_cast<unsigned long>(get_read_flag(flag)) << i;
    }
    return result;
}

bool QPU::flag_operand(long flag) const {
    if (magnitude(flag) <= 1) return flag == 1;
    return get_read_flag(flag) != 0;
}

void QPU::flag_nand(long flag_a, long flag_b, long cond_flag, long dest_flag) {
    if (dest_flag == 0 || !flag_condition(cond_flag)) return;
    const bool both = flag_operand(flag_a) && flag_operand(flag_b);
    if (magnitude(dest_flag) == 1) return;
    // The sign picks AND or NAND and nothing more: the bit itself is stored as it is.
    store_bit(flag_position(dest_flag), dest_flag < 0 ? both : !both);
}

}  // namespace Nimbrel
