// Queries that do not change the state: probabilities, single amplitudes and the largest terms.
#include <algorithm>

#include "filter/shared_records.h"
#include "sparse/sparse_filter.h"
#include "support/array_elements.h"
#include "support/largest_terms.h"

namespace Nimbrel {
namespace {

/// A term that is among the largest ones found so far.
struct Candidate {
    double probability;
    std::size_t place;  ///< its number in the list
};

/// The largest terms, largest first; among equals the earlier in the list goes first.
std::vector<Candidate> largest_terms(const TermList& terms, unsigned long count) {
    LargestTerms<Candidate> largest(count, terms.size());
    double threshold = largest.threshold();
    for (std::size_t place = 0; place < terms.size(); ++place) {
        const double probability = squared_magnitude(terms[place].amplitude);
        if (!(probability > threshold)) continue;
        largest.keep({probability, place});
        threshold = largest.threshold();
    }
    return std::move(largest).sorted();
}

}  // namespace

ArrayNeeds OpFilter_SparseSVSim::peek_n_biggest_terms_needs(unsigned long count) const {
    return {.amplitudes = count, .indices = count, .writable = count != 0};
}

ArrayNeeds OpFilter_SparseSVSim::peek_value_needs() const {
    return {.amplitudes = 1, .writable = true};
}

unsigned long OpFilter_SparseSVSim::peek_num_nonzero_terms() { return terms.size(); }

double OpFilter_SparseSVSim::pps(unsigned long /*x_mask*/, unsigned long /*z_mask*/) {
    return 0.0;  // this filter does not compute it
}

void OpFilter_SparseSVSim::peek_value(unsigned long index, complex_t* dest) {
    const auto found = std::find_if(terms.begin(), terms.end(),
                                    [&](const term_t& term) { return term.key == index * 2; });
    set_element(dest, 0, found == terms.end() ? complex_t{0.0, 0.0} : found->amplitude);
}

void OpFilter_SparseSVSim::peek_n_biggest_terms(unsigned long count, unsigned long* indices,
                                                complex_t* amplitudes) {
    if (count == 0) return;
    const std::vector<Candidate> largest = largest_terms(terms, count);
    clear_elements(indices, count);
    clear_elements(amplitudes, count);
    for (std::size_t i = 0; i < largest.size(); ++i) {
        const term_t& term = terms[largest[i].place];
        set_element(indices, i, term.key >> 1);
        set_element(amplitudes, i, term.amplitude);
    }
}

double OpFilter_SparseSVSim::peek_read_probability(unsigned long value, unsigned long mask,
                                                   double limit) {
    require_peek_mask(mask);
    const KeyPattern wanted{key_bits(mask), key_bits(value)};
    const bool limited = limit != 0.0;  // a NaN is a limit that no sum reaches
    double sum = 0.0;
    for (const term_t& term : terms) {
        if (!wanted.matches(term.key)) continue;
        sum += squared_magnitude(term.amplitude);
        if (limited && sum >= limit) break;
    }
    return sum;
}

void OpFilter_SparseSVSim::finish() {}  // no operation is asynchronous

}  // namespace Nimbrel
