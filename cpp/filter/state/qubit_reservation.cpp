#include <algorithm>
#include <cstdio>

#include "filter/state/qpu_base.h"

namespace Nimbrel {
namespace {

// 32-bit patterns, zero-extended to 64 bits.
constexpr long no_qubits_at_all = 0xFFFFFFFE;
constexpr long no_qubits_free = 0xFFFFFFFF;

}  // namespace

// First fit from the lowest qubit. Only the first entry of a range holds its length, so the search
// skips whole ranges.
long QPU_Base::reserve_qubits(unsigned long count) {
    if (num_qubits == 0) return no_qubits_at_all;

    // After a failed reset `num_qubits` is the new number and the table has the old size.
    const unsigned long table_end = std::min(num_qubits, qint_table.size());
    unsigned long first = 0;
    unsigned long free_run = 0;
    while (first + free_run < table_end) {
        const unsigned int reserved = qint_table[first + free_run];
        if (reserved != 0) {
            first += free_run + reserved;
            free_run = 0;
        } else if (count == 0 || ++free_run == count) {
            qint_table[first] = static_cast<unsigned int>(count);
            return static_cast<long>(first);
        }
    }
    std::printf("Error: Attempted to allocate %d qubits, but the QPU has none available.\n",
                static_cast<int>(count));
    return no_qubits_free;
}

void QPU_Base::release_qubits(int first) {
    const int qubits = static_cast<int>(num_qubits);
    // A negative qubit is outside the register too.
    if (first < 0 || first >= qubits) {
        std::printf("Error: attempt to free a qint at %d but there are only %d qubits.\n", first,
                    qubits);
        return;
    }
    const auto entry = static_cast<unsigned long>(first);
    if (entry < qint_table.size()) qint_table[entry] = 0;
}

void QPU_Base::clear_all_qints() { qint_table.assign(num_qubits, 0); }

}  // namespace Nimbrel
