#include "sparse/term_sort.h"

#include <algorithm>
#include <array>
#include <bit>

namespace Nimbrel {
namespace {

/// Grows the scratch list to `size`; its contents are unspecified. A scratch list that is too small
/// is freed first, so that the process never holds three lists.
void ensure_size(TermList& scratch, std::size_t size) {
    if (scratch.capacity() < size) {
        TermList().swap(scratch);
        require_memory_for_terms("a gate could not allocate a scratch list", size);
        scratch.reserve(size);
    }
    if (scratch.size() < size) scratch.resize(size);
}

/// Moves the marked terms to `ones` and closes the gaps between the others. Returns the number of
/// unmarked terms. Every term is written to both sides, so that no branch depends on a key: the
/// processor cannot predict which terms are marked.
std::size_t split_sides(TermList& terms, term_t* ones) {
    term_t* const list = terms.data();
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
    return num_zeros;
}

/// Sorts a list whose marked terms are sorted and whose unmarked terms are sorted.
void merge_sides(TermList& terms, TermList& scratch, std::size_t marked) {
    ensure_size(scratch, marked + 1);  // split_sides writes one term behind the last marked one
    term_t* const list = terms.data();
    term_t* const ones = scratch.data();
    std::size_t num_zeros = split_sides(terms, ones);
    std::size_t num_ones = marked;
    std::size_t place = terms.size();
    while (num_zeros != 0 && num_ones != 0) {
        const bool one = list[num_zeros - 1].key < ones[num_ones - 1].key;
        const term_t* const larger = one ? &ones[num_ones - 1] : &list[num_zeros - 1];
        list[--place] = *larger;
        num_ones -= one ? 1 : 0;
        num_zeros -= one ? 0 : 1;
    }
    std::copy_n(ones, num_ones, list);
}

/// Swaps the storage of the two lists if the sorted terms are in the scratch list. `sorted` points
/// to the first of them.
void adopt_storage(TermList& terms, TermList& scratch, const term_t* sorted) {
    if (sorted == terms.data()) return;
    const std::size_t count = terms.size();
    terms.swap(scratch);
    terms.resize(count);
}

/// Merges neighbouring runs of one length into runs of twice that length. Each round moves the
/// whole list to the other storage.
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
    adopt_storage(terms, scratch, from);
}

/// The digits of a key by which a radix sort sorts. Together they contain all bits that vary.
template <unsigned Width>
struct DigitPlan {
    static constexpr unsigned long values = 1UL << Width;  ///< number of values of a digit
    std::array<unsigned, 64> shifts{};                     ///< lowest bit of each digit
    std::size_t count = 0;                                 ///< number of digits

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

/// Replaces the number of terms for each value of a digit by the place of the first such term.
void make_places(std::size_t* counts, std::size_t num_values) {
    std::size_t sum = 0;
    for (std::size_t value = 0; value < num_values; ++value) {
        const std::size_t here = counts[value];
        counts[value] = sum;
        sum += here;
    }
}

/// Sorts by one digit after the other, the least significant first. Each pass moves the whole list
/// to the other storage.
template <unsigned Width>
void radix_sort(TermList& terms, TermList& scratch, unsigned long varying) {
    using Plan = DigitPlan<Width>;
    const Plan plan(varying);
    const std::size_t count = terms.size();
    ensure_size(scratch, count);
    std::vector<std::size_t> counts(plan.count * Plan::values);
    for (const term_t& term : terms) {
        for (std::size_t i = 0; i < plan.count; ++i) {
            ++counts[i * Plan::values + plan.digit(term.key, i)];
        }
    }
    term_t* from = terms.data();
    term_t* to = scratch.data();
    for (std::size_t i = 0; i < plan.count; ++i) {
        std::size_t* const next = &counts[i * Plan::values];
        make_places(next, Plan::values);
        for (std::size_t k = 0; k < count; ++k) to[next[plan.digit(from[k].key, i)]++] = from[k];
        std::swap(from, to);
    }
    adopt_storage(terms, scratch, from);
}

// The counters of narrow digits fit into the first-level cache. Wide digits save passes over a list
// that does not fit into a cache.
constexpr unsigned narrow_digit = 8;
constexpr unsigned wide_digit = 11;
constexpr std::size_t wide_digits_from = 1UL << 15;  ///< terms

/// Whether a radix sort is faster than a merge sort: the steps over terms and counters of its
/// passes against count * log2(count) comparisons.
bool radix_sort_is_faster(std::size_t count, unsigned long varying) {
    const std::size_t passes = DigitPlan<narrow_digit>(varying).count;
    return passes * (count + DigitPlan<narrow_digit>::values) <
           count * static_cast<std::size_t>(std::bit_width(count));
}

}  // namespace

KeySurvey mark_terms(TermList& terms, unsigned long target) {
    KeySurvey survey;
    const unsigned long toggled = target | term_marker;
    unsigned long any = 0;
    unsigned long all = ~0UL;
    unsigned long last = 0;
    unsigned long last_of_zeros = 0;
    unsigned long last_of_ones = 0;
    for (term_t& term : terms) {
        const bool one = (term.key & target) != 0;
        const unsigned long key = term.key ^ (one ? toggled : 0);
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

void sort_terms(TermList& terms, TermList& scratch, const KeySurvey& survey) {
    if (survey.ordered) return;
    if (survey.sides_ordered) {
        merge_sides(terms, scratch, survey.marked);
    } else if (!radix_sort_is_faster(terms.size(), survey.varying)) {
        merge_sort(terms, scratch);
    } else if (terms.size() < wide_digits_from) {
        radix_sort<narrow_digit>(terms, scratch, survey.varying);
    } else {
        radix_sort<wide_digit>(terms, scratch, survey.varying);
    }
}

}  // namespace Nimbrel
