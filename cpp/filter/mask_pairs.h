/// Flat lists of (mask, bit offset) pairs: the form of masks on registers wider than 64 qubits.
///
/// Used by the bit and Clifford filters on the caller's thread.
#pragma once

#include <vector>

#include "support/bits.h"

namespace Nimbrel {

/// Calls `visit(mask, offset)` for each pair in order.
template <typename Visit>
void for_each_mask(const std::vector<unsigned long>& list, Visit&& visit) {
    for (std::size_t i = 0; i < list.size(); i += 2) visit(list[i], list[i + 1]);
}

/// Calls `visit(mask, word)` for each pair in order. `word` is the index of the word at the offset.
template <typename Visit>
void for_each_pair(const std::vector<unsigned long>& list, Visit&& visit) {
    for_each_mask(list,
                  [&](unsigned long mask, unsigned long offset) { visit(mask, word_of(offset)); });
}

inline void append_pair(std::vector<unsigned long>& list, unsigned long mask,
                        unsigned long offset) {
    list.push_back(mask);
    list.push_back(offset);
}

/// Appends all pairs of another list.
inline void append_pairs(std::vector<unsigned long>& list, const std::vector<unsigned long>& more) {
    list.insert(list.end(), more.begin(), more.end());
}

}  // namespace Nimbrel
