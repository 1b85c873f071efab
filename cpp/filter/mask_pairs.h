/// Flat lists of (mask, bit offset) pairs: the form of masks on registers wider than 64 qubits.
///
/// Used by the bit and Clifford filters on the caller's thread.
#pragma once

#include <vector>

#include "support/bits.h"

namespace Nimbrel {

/// Calls `visit(mask, word)` for each pair in order. `word` is the index of the word at the offset.
template <typename Visit>
void for_each_pair(const std::vector<unsigned long>& list, Visit&& visit) {
    for (std::size_t i = 0; i < list.size(); i += 2) visit(list[i], word_of(list[i + 1]));
}

inline void append_pair(std::vector<unsigned long>& list, unsigned long mask,
                        unsigned long offset) {
    list.push_back(mask);
    list.push_back(offset);
}

}  // namespace Nimbrel
