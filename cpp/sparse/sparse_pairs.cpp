// Gates that mix pairs of terms: for each target bit the list is marked, ordered and walked once.
#include <algorithm>

#include "core_register/core_register.h"
#include "sparse/sparse_filter.h"
#include "sparse/term_order.h"
#include "support/amplitudes.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// What becomes of the 0-side and of the 1-side of a pair.
struct Sides {
    OneAmplitude zero;
    OneAmplitude one;
};

/// One unit below the double next to 1/sqrt(2).
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

/// A real rotation; the second product of each sum is fused into it.
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

/// Whether the term at `i` of an ordered list stands before its partner.
bool has_partner(const TermList& terms, std::size_t count, std::size_t i) {
    return i + 1 < count && terms[i + 1].key == (terms[i].key | term_marker);
}

/// Terms of an ordered list that meet the condition and have no partner.
std::size_t count_lone_terms(const TermList& terms, const KeyPattern& condition) {
    std::size_t lone = 0;
    for (std::size_t i = 0; i < terms.size(); ++i) {
        if (!condition.matches(terms[i].key)) continue;
        if ((terms[i].key & term_marker) == 0 && has_partner(terms, terms.size(), i)) {
            ++i;
        } else {
            ++lone;
        }
    }
    return lone;
}

/// Room for a partner of each lone term. Only what is needed is reserved, and the scratch goes
/// first, so that three lists never stand in memory at once.
void reserve_partners(TermList& terms, TermList& scratch, const KeyPattern& condition) {
    const std::size_t room = terms.capacity() - terms.size();
    if (room >= terms.size()) return;
    const std::size_t lone = count_lone_terms(terms, condition);
    if (room >= lone) return;
    TermList().swap(scratch);
    require_memory_for_terms("a gate could not allocate a list", terms.size() + lone);
    terms.reserve(terms.size() + lone);
}

/// Applies a gate to each pair and to each lone term of a marked and ordered list with room for all
/// partners, and takes the marks off. New terms go to the end and are not visited.
template <typename Gate>
void walk_pairs(TermList& terms, unsigned long target, const KeyPattern& condition,
                const Gate& gate) {
    const unsigned long moved = target | term_marker;
    const std::size_t count = terms.size();
    for (std::size_t i = 0; i < count; ++i) {
        term_t& term = terms[i];
        const bool one = (term.key & term_marker) != 0;
        if (!condition.matches(term.key)) {
            if (one) term.key ^= moved;
            continue;
        }
        const auto amplitude = OneAmplitude::load(&term.amplitude);
        term_t added;
        if (one) {
            const Sides sides = gate.lone_one(amplitude);
            added.key = term.key ^ term_marker;
            sides.zero.store(&added.amplitude);
            term.key ^= moved;
            sides.one.store(&term.amplitude);
        } else if (has_partner(terms, count, i)) {
            term_t& partner = terms[++i];
            const Sides sides = gate.pair(amplitude, OneAmplitude::load(&partner.amplitude));
            sides.zero.store(&term.amplitude);
            partner.key ^= moved;
            sides.one.store(&partner.amplitude);
            continue;
        } else {
            const Sides sides = gate.lone_zero(amplitude);
            sides.zero.store(&term.amplitude);
            added.key = term.key ^ target;
            sides.one.store(&added.amplitude);
        }
        terms.push_back(added);
    }
}

}  // namespace

template <typename Gate>
void OpFilter_SparseSVSim::mix_pairs(const Gate& gate, unsigned long target_mask,
                                     unsigned long cond_mask, unsigned long cond_neg_mask) {
    const KeyPattern condition = condition_of(cond_mask, cond_neg_mask);
    for_each_bit(key_bits(target_mask), [&](unsigned long target) {
        const KeySurvey survey = mark_terms(terms, target);
        try {
            order_terms(terms, sort_space, survey);
            reserve_partners(terms, sort_space, condition);
        } catch (...) {
            // Out of memory: every term has its own key again before the error leaves.
            unmark_terms(terms, target);
            throw;
        }
        walk_pairs(terms, target, condition, gate);
    });
}

void OpFilter_SparseSVSim::apply_hadamard(unsigned long target_mask, unsigned long cond_mask,
                                          unsigned long cond_neg_mask, long cond_flag) {
    if (!qpu->flag_condition(cond_flag)) return;
    mix_pairs(HadamardGate{}, target_mask, cond_mask, cond_neg_mask);
}

void OpFilter_SparseSVSim::apply_matrix(const complex_t m[4], unsigned long target_mask,
                                        unsigned long cond_mask, unsigned long cond_neg_mask,
                                        long cond_flag) {
    if (!qpu->flag_condition(cond_flag)) return;
    mix_pairs(MatrixGate(m), target_mask, cond_mask, cond_neg_mask);
}

void OpFilter_SparseSVSim::apply_matrix(const complex_t (&m)[4], const QPUOp& op) {
    apply_matrix(m, op.target_mask, op.cond_mask, op.cond_neg_mask, op.cond_flag);
}

void OpFilter_SparseSVSim::rotate_x(const QPUOp& op) {
    const auto [s, c] = turns.of_half(op.angle);
    apply_matrix({{c, 0.0}, {0.0, -s}, {0.0, -s}, {c, 0.0}}, op);
}

void OpFilter_SparseSVSim::rotate_y(const QPUOp& op) {
    if (!qpu->flag_condition(op.cond_flag)) return;
    mix_pairs(RealRotation(turns.of_half(op.angle)), op.target_mask, op.cond_mask,
              op.cond_neg_mask);
}

void OpFilter_SparseSVSim::rotate_z(const QPUOp& op) {
    const auto [s, c] = turns.of_half(op.angle);
    apply_matrix({{c, -s}, {0.0, 0.0}, {0.0, 0.0}, {c, s}}, op);
}

}  // namespace Nimbrel
