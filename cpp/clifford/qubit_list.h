/// The qubits of a record, which may be wider than one mask.
///
/// Plain values, used on the caller's thread.
#pragma once

#include <bit>
#include <vector>

#include "filter/mask_pairs.h"

namespace Nimbrel {

/// The qubits of a record: those of its own mask, then those of its extensions.
struct QubitList {
    unsigned long mask = 0;
    unsigned long base = 0;           ///< qubit of bit 0 of `mask`
    std::vector<unsigned long> more;  ///< pairs of a mask and the qubit of its bit 0

    /// Replaces all qubits by those of one mask.
    void set(unsigned long only_mask, unsigned long only_base) {
        mask = only_mask;
        base = only_base;
        more.clear();
    }

    bool empty() const { return mask == 0 && more.empty(); }

    /// Whether no qubit has a number of `limit` or more. The sum of a base and a bit may wrap.
    bool is_below(unsigned long limit) const {
        const auto width = static_cast<unsigned long>(std::bit_width(mask));
        return more.empty() && base < limit && width <= limit - base;
    }
};

/// Calls `visit(mask, base)` for each mask in order.
template <typename Visit>
void for_each_mask(const QubitList& list, Visit&& visit) {
    if (list.mask != 0) visit(list.mask, list.base);
    for_each_mask(list.more, visit);
}

/// Calls `visit(qubit)` for each qubit: pair by pair, from the lowest bit of a mask to the highest.
template <typename Visit>
void for_each_qubit(const QubitList& list, Visit&& visit) {
    for_each_mask(list, [&](unsigned long mask, unsigned long base) {
        for_each_bit(mask, [&](unsigned long bit) { visit(base + bit_number(bit)); });
    });
}

/// The number of qubits in a list, and the first two of them.
struct FirstQubits {
    unsigned long count = 0;
    unsigned long first = 0;
    unsigned long second = 0;

    explicit FirstQubits(const QubitList& list) {
        if (list.more.empty()) {
            count = static_cast<unsigned long>(std::popcount(list.mask));
            if (count > 0) first = list.base + bit_number(list.mask);
            if (count > 1) second = list.base + bit_number(without_lowest_bit(list.mask));
            return;
        }
        for_each_qubit(list, [this](unsigned long qubit) {
            if (count == 0) first = qubit;
            if (count == 1) second = qubit;
            ++count;
        });
    }
};

}  // namespace Nimbrel
