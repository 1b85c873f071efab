/// The largest terms of a state, collected while the caller visits the state term by term.
///
/// Used by one thread at a time.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace Nimbrel {

/// Keeps the `count` largest terms in a heap whose top is the term to drop next. `Term` has the
/// members `probability` and `place`, the number of the term in the order of the visits.
template <typename Term>
class LargestTerms {
  public:
    /// Reserves memory for min(count, num_terms) terms. Requires: `count` is not 0, and no more
    /// than `num_terms` terms are kept.
    LargestTerms(std::size_t count, std::size_t num_terms) : count_(count) {
        heap_.reserve(std::min(count, num_terms));
    }

    /// A term is kept if its probability is greater than this. 0 while fewer than `count` terms
    /// are kept; so a term of probability 0 or NaN never is.
    double threshold() const { return heap_.size() < count_ ? 0.0 : heap_.front().probability; }

    /// Keeps a term and drops the last one if there are too many.
    /// Requires: `term.probability > threshold()`.
    /// Not inlined: few terms are kept, and the walk over all terms is faster without this code.
    [[gnu::noinline]] void keep(const Term& term) {
        if (heap_.size() == count_) {
            std::pop_heap(heap_.begin(), heap_.end(), ranks_before);
            heap_.back() = term;
        } else {
            heap_.push_back(term);
        }
        std::push_heap(heap_.begin(), heap_.end(), ranks_before);
    }

    /// The kept terms, largest first.
    std::vector<Term> sorted() && {
        std::sort_heap(heap_.begin(), heap_.end(), ranks_before);
        return std::move(heap_);
    }

  private:
    /// The order of the list: the greater probability first, among equals the smaller `place`.
    static constexpr auto ranks_before = [](const Term& a, const Term& b) {
        return a.probability > b.probability ||
               (a.probability == b.probability && a.place < b.place);
    };

    std::size_t count_;
    std::vector<Term> heap_;
};

}  // namespace Nimbrel
