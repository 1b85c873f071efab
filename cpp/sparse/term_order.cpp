#include "sparse/term_order.h"

#include <algorithm>
#include <array>
#include <bit>

namespace Nimbrel {
namespace {

/// Makes room for `size` terms, of which nothing is expected. A smaller scratch goes before the
/// larger one comes, since both beside the list would take too much memory.
void ensure_size(TermList& scratch, std::size_t size) {
    if (scratch.capacity() < size) {
        TermList().swap(scratch);
        require_memory_for_terms("a gate could not allocate a scratch list", size);
        scratch.reserve(size);
    }
    if (scratch.size() < size) scratch.resize(size);
}

/// Takes the marked terms out in their order and merges them back in from the end. Both sides must
/// be in order. Free of branches that depend on the keys: partners lie in no predictable pattern.
void merge_sides(TermList& terms, TermList& scratch, std::size_t marked) {
    ensure_size(scratch, marked + 1);  // one more, since the last unmarked term is written too
    term_t* const list = terms.data();
    term_t* const ones = scratch.data();
    const std::size_t count = terms.size();
    std::size_t num_zeros = 0;
    std::size_t num_ones = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const term_t term = list[i];
        const bool one = (term.key & term_marker) != 0;
        ones[num_ones] = term;
        list[num_zeros] = term;
        num_ones += one ? 1 : 0;
        num_zeros += one ? 0 : 1;
    }
    std::size_t place = count;
    while (num_zeros != 0 && num_ones != 0) {
        const bool one = list[num_zeros - 1].key < ones[num_ones - 1].key;
        const term_t* const larger = one ? &ones[num_ones - 1] : &list[num_zeros - 1];
        list[--place] = *larger;
        num_ones -= one ? 1 : 0;
        num_zeros -= one ? 0 : 1;
    }
    std::copy_n(ones, num_ones, list);
}

/// Makes the storage that `from` points to the list's own, if it is the scratch's.
void keep_storage(TermList& terms, TermList& scratch, const term_t* from) {
    if (from == terms.data()) return;
    const std::size_t count = terms.size();
    terms.swap(scratch);
    terms.resize(count);
}

/// Merges neighbouring runs of one length into runs of twice that; each round moves the whole list
/// over to the other storage.
void merge_sort(TermList& terms, TermList& scratch) {
    const std::size_t count = terms.size();
    ensure_size(scratch, count);
    term_t* from = terms.data();
    term_t* to = scratch.data();
    for (std::size_t run = 1; run < count; run *= 2) {
        for (std::size_t begin = 0; begin < count; begin += 2 * run) {
            const std::size_t middle = std::min(begin + run, count);
            const std::size_t end = std::min(middle + run, count);
            std::merge(from + begin, from + middle, from + middle, from + end, to + begin,
                       compare_terms);
        }
        std::swap(from, to);
    }
    keep_storage(terms, scratch, from);
}

/// The places of the digits that a radix sort has to look at: windows over the bits that vary.
template <unsigned Width>
struct DigitPlan {
    static constexpr unsigned long values = 1UL << Width;
    std::array<unsigned, 64> shifts{};
    std::size_t count = 0;

    explicit DigitPlan(unsigned long varying) {
        while (varying != 0) {
            const auto lowest = static_cast<unsigned>(std::countr_zero(varying));
            shifts[count++] = lowest;
            varying = lowest + Width < 64 ? varying >> (lowest + Width) << (lowest + Width) : 0;
        }
    }

    std::size_t digit(unsigned long key, std::size_t place) const {
        return key >> shifts[place] & (values - 1);
    }
};

/// Least digit first; every pass moves the whole list over to the other storage.
template <unsigned Width>
void radix_sort(TermList& terms, TermList& scratch, unsigned long varying) {
    using Plan = DigitPlan<Width>;
    const Plan plan(varying);
    const std::size_t count = terms.size();
    ensure_size(scratch, count);
    std::vector<std::size_t> places(plan.count * Plan::values);
    for (const term_t& term : terms) {
        for (std::size_t i = 0; i < plan.count; ++i) {
            ++places[i * Plan::values + plan.digit(term.key, i)];
        }
    }
    term_t* from = terms.data();
    term_t* to = scratch.data();
    for (std::size_t i = 0; i < plan.count; ++i) {
        std::size_t* const next = &places[i * Plan::values];
        std::size_t sum = 0;
        for (std::size_t value = 0; value < Plan::values; ++value) {
            const std::size_t here = next[value];
            next[value] = sum;
            sum += here;
        }
        for (std::size_t k = 0; k < count; ++k) to[next[plan.digit(from[k].key, i)]++] = from[k];
        std::swap(from, to);
    }
    keep_storage(terms, scratch, from);
}

// Narrow digits keep their counters in the nearest cache; wide ones save passes over a list that is
// itself far away.
constexpr unsigned narrow_digit = 8;
constexpr unsigned wide_digit = 11;
constexpr std::size_t wide_from = 1UL << 15;

/// Whether the passes over list and counters come cheaper than comparisons.
bool radix_pays(std::size_t count, unsigned long varying) {
    const std::size_t passes = DigitPlan<narrow_digit>(varying).count;
    return passes * (count + DigitPlan<narrow_digit>::values) < count * std::bit_width(count);
}

}  // namespace

KeySurvey mark_terms(TermList& terms, unsigned long target) {
    KeySurvey survey;
    const unsigned long moved = target | term_marker;
    unsigned long any = 0;
    unsigned long all = ~0UL;
    unsigned long last = 0;
    unsigned long last_of_zeros = 0;
    unsigned long last_of_ones = 0;
    for (term_t& term : terms) {
        const bool one = (term.key & target) != 0;
        const unsigned long key = term.key ^ (one ? moved : 0);
        term.key = key;
        any |= key;
        all &= key;
        survey.marked += one ? 1 : 0;
        survey.ordered &= key >= last;
        survey.sides_ordered &= key >= (one ? last_of_ones : last_of_zeros);
        last = key;
        last_of_ones = one ? key : last_of_ones;
        last_of_zeros = one ? last_of_zeros : key;
    }
    survey.varying = any & ~all;
    return survey;
}

void unmark_terms(TermList& terms, unsigned long target) {
    for (term_t& term : terms) {
        if ((term.key & term_marker) != 0) term.key ^= target | term_marker;
    }
}

void order_terms(TermList& terms, TermList& scratch, const KeySurvey& survey) {
    if (survey.ordered) return;
    if (survey.sides_ordered) {
        merge_sides(terms, scratch, survey.marked);
    } else if (!radix_pays(terms.size(), survey.varying)) {
        merge_sort(terms, scratch);
    } else if (terms.size() < wide_from) {
        radix_sort<narrow_digit>(terms, scratch, survey.varying);
    } else {
        radix_sort<wide_digit>(terms, scratch, survey.varying);
    }
}

}  // namespace Nimbrel
