/// How a gate makes the two terms of each pair neighbours: it marks the terms whose target qubit is
/// 1, clears their target bit and sorts the list by key.
///
/// Works on the list and a scratch list of the caller, on the caller's thread.
#pragma once

#include "sparse/term.h"

namespace Nimbrel {

/// Properties of a marked list, found while the terms are marked. They decide how it is sorted.
struct KeySurvey {
    unsigned long varying = 0;  ///< key bits that are not the same in all terms
    unsigned long marked = 0;   ///< number of marked terms
    bool ordered = true;        ///< the list is sorted
    bool sides_ordered = true;  ///< the marked terms are sorted, and so are the unmarked ones
};

/// Marks every term with the target bit set and clears that bit, so that the keys of two partners
/// differ in the marker only. Returns what `sort_terms` needs to know of the list.
KeySurvey mark_terms(TermList& terms, unsigned long target);

/// Removes the marker of every marked term and sets its target bit again.
void unmark_terms(TermList& terms, unsigned long target);

/// Sorts a marked list by key; terms of equal keys keep their order. The scratch list grows as
/// needed, and the two lists may swap their storage.
/// Throws if there is no memory for the scratch list; the list is then unchanged.
void sort_terms(TermList& terms, TermList& scratch, const KeySurvey& survey);

}  // namespace Nimbrel
