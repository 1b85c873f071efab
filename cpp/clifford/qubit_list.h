/// Walking flat lists of pairs of a mask and the qubit of its bit 0, the form of wide masks here.
#pragma once

#include <bit>
#include <vector>

#include "support/bits.h"

namespace Nimbrel {

/// Calls `visit(qubit)` for each qubit, pair by pair and from the lowest bit up.
template <typename Visit>
void for_each_qubit(const std::vector<unsigned long>& list, Visit&& visit) {
    for (std::size_t i = 0; i < list.size(); i += 2) {
        const unsigned long base = list[i + 1];
        for_each_bit(list[i], [&](unsigned long bit) {
            visit(base + static_cast<unsigned long>(std::countr_zero(bit)));
        });
    }
}

/// How many qubits a list names, and the first two of them.
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
