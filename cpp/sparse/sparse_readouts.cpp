// What can be asked of a state without changing it.
#include <algorithm>
#include <stdexcept>

#include "sparse/sparse_filter.h"

namespace Nimbrel {
namespace {

/// A term that may be among the biggest.
struct Candidate {
    double probability;
    std::size_t place;  ///< in the list; among equals the earlier goes first
};

bool goes_before(const Candidate& a, const Candidate& b) {
    return a.probability > b.probability || (a.probability == b.probability && a.place < b.place);
}

/// The biggest terms in order. Keeps no more than `count` candidates at a time, the least of them
/// on top of a heap.
std::vector<Candidate> biggest_terms(const TermList& terms, unsigned long count) {
    std::vector<Candidate> kept;
    kept.reserve(std::min<std::size_t>(count, terms.size()));
    for (std::size_t place = 0; place < terms.size(); ++place) {
        const Candidate term{squared_magnitude(terms[place].amplitude), place};
        const double least = kept.size() < count ? 0.0 : kept.front().probability;
        if (!(term.probability > least)) continue;
        if (kept.size() == count) {
            std::pop_heap(kept.begin(), kept.end(), goes_before);
            kept.pop_back();
        }
        kept.push_back(term);
        std::push_heap(kept.begin(), kept.end(), goes_before);
    }
    std::sort_heap(kept.begin(), kept.end(), goes_before);
    return kept;
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
    return 0.0;  // products are not calculated here
}

void OpFilter_SparseSVSim::peek_value(unsigned long index, complex_t* dest) {
    const auto found = std::find_if(terms.begin(), terms.end(),
                                    [&](const term_t& term) { return term.key == index * 2; });
    *dest = found == terms.end() ? complex_t{0.0, 0.0} : found->amplitude;
}

void OpFilter_SparseSVSim::peek_n_biggest_terms(unsigned long count, unsigned long* indices,
                                                complex_t* amplitudes) {
    if (count == 0) return;
    const std::vector<Candidate> biggest = biggest_terms(terms, count);
    std::fill_n(indices, count, 0UL);
    std::fill_n(amplitudes, count, complex_t{0.0, 0.0});
    for (std::size_t i = 0; i < biggest.size(); ++i) {
        const term_t& term = terms[biggest[i].place];
        indices[i] = term.key >> 1;
        amplitudes[i] = term.amplitude;
    }
}

double OpFilter_SparseSVSim::peek_read_probability(unsigned long value, unsigned long mask,
                                                   double limit) {
    if (mask == 0) {
        throw std::runtime_error(
            "qc.peek_read_probability() must specify at least one qubit to measure.");
    }
    const KeyPattern wanted{key_bits(mask), key_bits(value)};
    const bool limited = limit != 0.0;  // by a NaN too, which no sum reaches
    double sum = 0.0;
    for (const term_t& term : terms) {
        if (!wanted.matches(term.key)) continue;
        sum += squared_magnitude(term.amplitude);
        if (limited && sum >= limit) break;
    }
    return sum;
}

void OpFilter_SparseSVSim::finish() {}  // every call has done its work when it returns

}  // namespace Nimbrel
