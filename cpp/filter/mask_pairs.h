/// Walking flat lists of (mask, bit offset) pairs, the form in which wide masks travel in programs.
#pragma once

#include <vector>

#include "support/bits.h"

namespace Nimbrel {

/// Calls `visit(mask, word)` for each pair in order, `word` being the word that the offset names.
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
