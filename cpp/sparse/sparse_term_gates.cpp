// Gates that change each term independently of the others: X, swap and the elbows change keys, the
// diagonal gates multiply amplitudes. They keep the order and length of the list and allocate
// nothing.
#include "sparse/sparse_filter.h"
#include "support/amplitudes.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Flips these bits in every matching key. The loop has no branch that depends on a key.
void flip_keys(TermList& terms, KeyPattern pattern, unsigned long flips) {
    if (flips == 0) return;
    for (term_t& term : terms) term.key ^= pattern.matches(term.key) ? flips : 0;
}

/// Compares keys with a pattern. Both lanes of the result are all ones for a key that matches and
/// all zeros for one that does not.
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

// The processor cannot predict which terms match. So both loops below do the same work for every
// term and write terms that do not match back unchanged.

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
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    flip_keys(terms, pattern_of_controls(op.cond_mask, op.cond_neg_mask), key_bits(op.target_mask));
}

// Three controlled flips, of which only the middle one has the gate's controls. The targets are not
// counted: with one target the outer flips cancel; with more than two the upper ones are flipped
// together.
void OpFilter_SparseSVSim::swap(const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    const unsigned long first = key_bits(lowest_bit(op.target_mask));
    const unsigned long rest = key_bits(without_lowest_bit(op.target_mask));
    const KeyPattern outer_controls{rest, rest};
    const KeyPattern middle_controls =
        pattern_of_controls(op.cond_mask | lowest_bit(op.target_mask), op.cond_neg_mask);
    flip_keys(terms, outer_controls, first);
    flip_keys(terms, middle_controls, rest);
    flip_keys(terms, outer_controls, first);
}

template <typename Walk>
void OpFilter_SparseSVSim::for_each_phase_target(unsigned long target_mask, unsigned long cond_mask,
                                                 unsigned long cond_neg_mask, Walk&& walk) const {
    unsigned long targets = key_bits(target_mask);
    unsigned long controls = key_bits(cond_mask);
    if (targets == 0) {
        targets = lowest_bit(controls);
        controls = without_lowest_bit(controls);
    }
    // With a negated target the gate changes the terms in which the target is 0.
    const unsigned long negated = key_bits(cond_neg_mask);
    for_each_bit(targets, [&](unsigned long target) {
        walk(KeyPattern::of_controls(target | controls, negated));
    });
}

void OpFilter_SparseSVSim::apply_phase(double angle, unsigned long target_mask,
                                       unsigned long cond_mask, unsigned long cond_neg_mask,
                                       long cond_flag) {
    if (!qpu_base().flag_condition(cond_flag) || angle == 0.0) return;
    const auto [sine, cosine] = sine_cosines.of(angle);
    multiply_terms({cosine, sine}, target_mask, cond_mask, cond_neg_mask);
}

void OpFilter_SparseSVSim::multiply_terms(complex_t factor, unsigned long target_mask,
                                          unsigned long cond_mask, unsigned long cond_neg_mask) {
    const ComplexFactor factor_lanes(factor);
    for_each_phase_target(target_mask, cond_mask, cond_neg_mask, [&](KeyPattern pattern) {
        multiply_amplitudes(terms, pattern, factor_lanes);
    });
}

void OpFilter_SparseSVSim::multiply_terms(complex_t factor, const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    multiply_terms(factor, op.target_mask, op.cond_mask, op.cond_neg_mask);
}

// Toggles sign bits. A product with -1 would not negate a NaN.
void OpFilter_SparseSVSim::negate_terms(const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    for_each_phase_target(op.target_mask, op.cond_mask, op.cond_neg_mask,
                          [&](KeyPattern pattern) { negate_amplitudes(terms, pattern); });
}

}  // namespace Nimbrel
