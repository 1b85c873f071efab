/// Walks over the qubits of a wide mask, a flat list of pairs of a mask and the qubit of its bit 0.
///
/// Pure functions on the caller's lists.
#pragma once

#include "filter/mask_pairs.h"

namespace Nimbrel {

/// Calls `visit(qubit)` for each qubit: pair by pair, from the lowest bit of a mask to the highest.
template <typename Visit>
void for_each_qubit(const std::vector<unsigned long>& list, Visit&& visit) {
    for_each_mask(list, [&](unsigned long mask, unsigned long base) {
        for_each_bit(mask, [&](unsigned long bit) { visit(base + bit_number(bit)); });
    });
}

/// The number of qubits in a list, and the first two of them.
struct FirstQubits {
    unsigned long count = 0;
    unsigned long first = 0;
    unsigned long second = 0;

    explicit FirstQubits(const std::vector<unsigned long>& list) {
        for_each_qubit(list, [this](unsigned long qubit) {
            if (count == 0) first = qubit;
            if (count == 1) second = qubit;
            ++count;
        });
    }
};

}  // namespace Nimbrel
