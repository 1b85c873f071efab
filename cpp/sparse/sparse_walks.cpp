// Gates that visit each term by itself: those that move keys and those that turn amplitudes. They
// keep the list's order and length and allocate nothing.
#include "core_register/core_register.h"
#include "sparse/sparse_filter.h"
#include "support/amplitudes.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Flips bits of every key that matches, without a branch that depends on the key.
void flip_keys(TermList& terms, KeyPattern pattern, unsigned long flips) {
    if (flips == 0) return;
    for (term_t& term : terms) term.key ^= pattern.matches(term.key) ? flips : 0;
}

/// All bits of both lanes for a key that matches, none for another.
class PatternLanes {
  public:
    explicit PatternLanes(KeyPattern pattern)
        : mask_(WordLanes::broadcast(pattern.mask)), value_(WordLanes::broadcast(pattern.value)) {}

    OneAmplitude of(const term_t& term) const {
        return WordLanes::equal(WordLanes::broadcast(term.key) & mask_, value_);
    }

  private:
    WordLanes mask_;
    WordLanes value_;
};

// Matching terms lie in no pattern that the processor could predict, so both walks below treat
// every term alike and keep each bit of those that do not match.

void multiply_amplitudes(TermList& terms, KeyPattern pattern, const ComplexFactor& factor) {
    const PatternLanes matching(pattern);
    for (term_t& term : terms) {
        const auto old = OneAmplitude::load(&term.amplitude);
        OneAmplitude::select(matching.of(term), factor.times(old), old).store(&term.amplitude);
    }
}

void negate_amplitudes(TermList& terms, KeyPattern pattern) {
    const PatternLanes matching(pattern);
    const auto signs = OneAmplitude::broadcast(-0.0);
    for (term_t& term : terms) {
        const OneAmplitude flips = matching.of(term) & signs;
        (OneAmplitude::load(&term.amplitude) ^ flips).store(&term.amplitude);
    }
}

}  // namespace

void OpFilter_SparseSVSim::flip(const QPUOp& op) {
    if (!qpu->flag_condition(op.cond_flag)) return;
    flip_keys(terms, condition_of(op.cond_mask, op.cond_neg_mask), key_bits(op.target_mask));
}

// Three controlled flips. The targets are not counted: with one the outer two cancel, and with
// more the upper ones move as a group. Only the middle flip has the gate's condition.
void OpFilter_SparseSVSim::swap(const QPUOp& op) {
    if (!qpu->flag_condition(op.cond_flag)) return;
    const unsigned long first = key_bits(lowest_bit(op.target_mask));
    const unsigned long rest = key_bits(without_lowest_bit(op.target_mask));
    const KeyPattern outer{rest, rest};
    const KeyPattern middle =
        condition_of(op.cond_mask | lowest_bit(op.target_mask), op.cond_neg_mask);
    flip_keys(terms, outer, first);
    flip_keys(terms, middle, rest);
    flip_keys(terms, outer, first);
}

template <typename Walk>
void OpFilter_SparseSVSim::for_each_phase_target(unsigned long target_mask, unsigned long cond_mask,
                                                 unsigned long cond_neg_mask, Walk&& walk) const {
    unsigned long targets = key_bits(target_mask);
    unsigned long conds = key_bits(cond_mask);
    if (targets == 0) {
        targets = lowest_bit(conds);
        conds = without_lowest_bit(conds);
    }
    // A negated bit on a target turns the 0-side instead of the 1-side.
    const unsigned long negs = key_bits(cond_neg_mask);
    for_each_bit(targets,
                 [&](unsigned long target) { walk(KeyPattern::condition(target | conds, negs)); });
}

void OpFilter_SparseSVSim::apply_phase(double angle, unsigned long target_mask,
                                       unsigned long cond_mask, unsigned long cond_neg_mask,
                                       long cond_flag) {
    if (!qpu->flag_condition(cond_flag) || angle == 0.0) return;
    const auto [sine, cosine] = turns.of(angle);
    multiply_terms({cosine, sine}, target_mask, cond_mask, cond_neg_mask);
}

void OpFilter_SparseSVSim::multiply_terms(complex_t factor, unsigned long target_mask,
                                          unsigned long cond_mask, unsigned long cond_neg_mask) {
    const ComplexFactor wide(factor);
    for_each_phase_target(target_mask, cond_mask, cond_neg_mask,
                          [&](KeyPattern pattern) { multiply_amplitudes(terms, pattern, wide); });
}

void OpFilter_SparseSVSim::multiply_terms(complex_t factor, const QPUOp& op) {
    if (!qpu->flag_condition(op.cond_flag)) return;
    multiply_terms(factor, op.target_mask, op.cond_mask, op.cond_neg_mask);
}

// By the sign bits and not by a product with -1, which would lose the sign of a NaN.
void OpFilter_SparseSVSim::negate_terms(const QPUOp& op) {
    if (!qpu->flag_condition(op.cond_flag)) return;
    for_each_phase_target(op.target_mask, op.cond_mask, op.cond_neg_mask,
                          [&](KeyPattern pattern) { negate_amplitudes(terms, pattern); });
}

}  // namespace Nimbrel
