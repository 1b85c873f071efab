/// Bringing partners together: marking the terms of one side and ordering the list by key.
///
/// Uses the list and a second one as scratch; called by pair walks on the caller's thread.
#pragma once

#include "sparse/term.h"

namespace Nimbrel {

/// What the walk that marks a list learns for the sort.
struct KeySurvey {
    unsigned long varying = 0;  ///< key bits in which any two terms differ
    unsigned long marked = 0;   ///< number of terms on the 1-side
    bool ordered = true;        ///< the list is in order already
    bool sides_ordered = true;  ///< each side is in order when looked at alone
};

/// Clears the target bit of every term that has it and sets the marker instead, so that partners
/// differ in the marker alone.
KeySurvey mark_terms(TermList& terms, unsigned long target);

/// Gives every marked term its target bit back.
void unmark_terms(TermList& terms, unsigned long target);

/// Orders a marked list by key; terms of equal keys keep their order. `scratch` is resized as
/// needed, and its storage may become the list's. Throws without memory for it; the list is
/// unchanged then.
void order_terms(TermList& terms, TermList& scratch, const KeySurvey& survey);

}  // namespace Nimbrel
