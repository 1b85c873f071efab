// Gates that mix the two terms of a pair, which differ in the target qubit only: Hadamard,
// rotations and other 2x2 matrices. For each target the list is marked, sorted and walked once.
#include <algorithm>

#include "sparse/sparse_filter.h"
#include "sparse/term_sort.h"
#include "support/amplitudes.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

// Each gate below has three functions: `pair` for two partners, `lone_zero` and `lone_one` for a
// term whose partner is not stored.

/// The new amplitudes of a pair: target qubit 0 and target qubit 1.
struct Sides {
    OneAmplitude zero;
    OneAmplitude one;
};

/// One unit in the last place below the double nearest to 1/sqrt(2).
constexpr double hadamard_factor = 0x1.6a09e667f3bccp-1;

struct HadamardGate {
    OneAmplitude factor = OneAmplitude::broadcast(hadamard_factor);
    OneAmplitude signs = OneAmplitude::broadcast(-0.0);

    Sides pair(OneAmplitude a0, OneAmplitude a1) const {
        return {(a1 + a0) * factor, (a0 - a1) * factor};
    }
    Sides lone_zero(OneAmplitude a) const {
        const OneAmplitude half = a * factor;
        return {half, half};
    }
    Sides lone_one(OneAmplitude a) const {
        const OneAmplitude half = a * factor;
        return {half, half ^ signs};
    }
};

struct MatrixGate {
    ComplexFactor m00;
    ComplexFactor m01;
    ComplexFactor m10;
    ComplexFactor m11;

    explicit MatrixGate(const complex_t m[4]) : m00(m[0]), m01(m[1]), m10(m[2]), m11(m[3]) {}

    Sides pair(OneAmplitude a0, OneAmplitude a1) const {
        return {m00.times(a0) + m01.times(a1), m10.times(a0) + m11.times(a1)};
    }
    Sides lone_zero(OneAmplitude a) const { return {m00.times(a), m10.times(a)}; }
    Sides lone_one(OneAmplitude a) const { return {m01.times(a), m11.times(a)}; }
};

/// A rotation with real coefficients. The second product of each sum is a fused multiply-add.
struct RealRotation {
    OneAmplitude c;
    OneAmplitude s;
    OneAmplitude minus_s;

    explicit RealRotation(SineCosine turn)
        : c(OneAmplitude::broadcast(turn.cosine)),
          s(OneAmplitude::broadcast(turn.sine)),
          minus_s(OneAmplitude::broadcast(-turn.sine)) {}

    Sides pair(OneAmplitude a0, OneAmplitude a1) const {
        return {OneAmplitude::fused(minus_s, a1, c * a0), OneAmplitude::fused(c, a1, s * a0)};
    }
    Sides lone_zero(OneAmplitude a) const { return {c * a, s * a}; }
    Sides lone_one(OneAmplitude a) const { return {minus_s * a, c * a}; }
};

/// Whether the partner of the unmarked term at `i` follows it in the sorted list.
bool has_partner(const TermList& terms, std::size_t count, std::size_t i) {
    return i + 1 < count && terms[i + 1].key == (terms[i].key | term_marker);
}

/// Number of terms of a sorted list that meet the controls and whose partner is not stored.
std::size_t count_lone_terms(const TermList& terms, const KeyPattern& controls) {
    std::size_t lone = 0;
    for (std::size_t i = 0; i < terms.size(); ++i) {
        if (!controls.matches(terms[i].key)) continue;
        if ((terms[i].key & term_marker) == 0 && has_partner(terms, terms.size(), i)) {
            ++i;
        } else {
            ++lone;
        }
    }
    return lone;
}

/// Reserves memory for the partners that the gate will append, and not for more. Frees the scratch
/// list before the list grows, so that the process never holds three lists.
void reserve_partners(TermList& terms, TermList& scratch, const KeyPattern& controls) {
    const std::size_t room = terms.capacity() - terms.size();
    if (room >= terms.size()) return;
    const std::size_t lone = count_lone_terms(terms, controls);
    if (room >= lone) return;
    TermList().swap(scratch);
    require_memory_for_terms("a gate could not allocate a list", terms.size() + lone);
    terms.reserve(terms.size() + lone);
}

/// Applies a gate to two neighbours that are partners, and removes the marker.
template <typename Gate>
void mix_pair(term_t& zero, term_t& one, unsigned long target, const Gate& gate) {
    const Sides sides =
        gate.pair(OneAmplitude::load(&zero.amplitude), OneAmplitude::load(&one.amplitude));
    sides.zero.store(&zero.amplitude);
    one.key ^= target | term_marker;
    sides.one.store(&one.amplitude);
}

/// Applies a gate to an unmarked term whose partner is not stored. Returns the partner.
template <typename Gate>
term_t mix_lone_zero(term_t& term, unsigned long target, const Gate& gate) {
    const Sides sides = gate.lone_zero(OneAmplitude::load(&term.amplitude));
    sides.zero.store(&term.amplitude);
    term_t partner;
    partner.key = term.key ^ target;
    sides.one.store(&partner.amplitude);
    return partner;
}

/// Applies a gate to a marked term whose partner is not stored, and removes the marker. Returns the
/// partner.
template <typename Gate>
term_t mix_lone_one(term_t& term, unsigned long target, const Gate& gate) {
    const Sides sides = gate.lone_one(OneAmplitude::load(&term.amplitude));
    term_t partner;
    partner.key = term.key ^ term_marker;
    sides.zero.store(&partner.amplitude);
    term.key ^= target | term_marker;
    sides.one.store(&term.amplitude);
    return partner;
}

/// Applies a gate to the terms that meet the controls and removes all markers. New terms are
/// appended and not visited. Requires: the list is marked and sorted and has memory for all new
/// terms.
template <typename Gate>
void walk_pairs(TermList& terms, unsigned long target, const KeyPattern& controls,
                const Gate& gate) {
    const std::size_t count = terms.size();
    for (std::size_t i = 0; i < count; ++i) {
        term_t& term = terms[i];
        const bool marked = (term.key & term_marker) != 0;
        if (!controls.matches(term.key)) {
            if (marked) term.key ^= target | term_marker;
        } else if (marked) {
            terms.push_back(mix_lone_one(term, target, gate));
        } else if (has_partner(terms, count, i)) {
            mix_pair(term, terms[++i], target, gate);
        } else {
            terms.push_back(mix_lone_zero(term, target, gate));
        }
    }
}

}  // namespace

template <typename Gate>
void OpFilter_SparseSVSim::mix_pairs(const Gate& gate, unsigned long target_mask,
                                     unsigned long cond_mask, unsigned long cond_neg_mask) {
    const KeyPattern controls = pattern_of_controls(cond_mask, cond_neg_mask);
    for_each_bit(key_bits(target_mask), [&](unsigned long target) {
        const KeySurvey survey = mark_terms(terms, target);
        try {
            sort_terms(terms, sort_scratch, survey);
            reserve_partners(terms, sort_scratch, controls);
        } catch (...) {
            // Out of memory. All terms are still stored; remove the markers.
            unmark_terms(terms, target);
            throw;
        }
        walk_pairs(terms, target, controls, gate);
    });
}

void OpFilter_SparseSVSim::apply_hadamard(unsigned long target_mask, unsigned long cond_mask,
                                          unsigned long cond_neg_mask, long cond_flag) {
    if (!qpu_base().flag_condition(cond_flag)) return;
    mix_pairs(HadamardGate{}, target_mask, cond_mask, cond_neg_mask);
}

void OpFilter_SparseSVSim::apply_matrix(const complex_t m[4], unsigned long target_mask,
                                        unsigned long cond_mask, unsigned long cond_neg_mask,
                                        long cond_flag) {
    if (!qpu_base().flag_condition(cond_flag)) return;
    mix_pairs(MatrixGate(m), target_mask, cond_mask, cond_neg_mask);
}

void OpFilter_SparseSVSim::apply_matrix(const MatrixEntries& m, const QPUOp& op) {
    apply_matrix(m.data(), op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);
}

void OpFilter_SparseSVSim::rotate_x(const QPUOp& op) {
    apply_matrix(rx_matrix(sine_cosines.of_half(op.angle)), op);
}

void OpFilter_SparseSVSim::rotate_y(const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    mix_pairs(RealRotation(sine_cosines.of_half(op.angle)), op.target_mask, op.cond_mask,
              op.cond_neg_mask);
}

void OpFilter_SparseSVSim::rotate_z(const QPUOp& op) {
    apply_matrix(rz_matrix(sine_cosines.of_half(op.angle)), op);
}

}  // namespace Nimbrel
