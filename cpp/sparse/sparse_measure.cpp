// Measurement: samples, projections, reads and writes of qubits, and normalisation.
#include <bit>
#include <cmath>
#include <stdexcept>

#include "sparse/sparse_filter.h"
#include "support/bits.h"
#include "support/random.h"

namespace Nimbrel {
namespace {

void scale(TermList& terms, double factor) {
    for (term_t& term : terms) {
        term.amplitude.re *= factor;
        term.amplitude.im *= factor;
    }
}

[[noreturn]] void refuse_projection() {
    throw std::runtime_error("qc.postselect() no non-zero terms match the desired value.");
}

}  // namespace

// If rounding leaves the sum below the draw, or the list is empty, the number of the last term is
// used as if it were a key. A seed must keep giving the same outcomes, so this does not change.
unsigned long OpFilter_SparseSVSim::sample(unsigned long targets) const {
    const double draw = random_zero_to_one();
    unsigned long chosen = terms.size() - 1;
    double sum = 0.0;
    for (const term_t& term : terms) {
        sum += squared_magnitude(term.amplitude);
        if (sum >= draw) {
            chosen = term.key;
            break;
        }
    }
    return (chosen & (targets * 2)) >> 1;
}

unsigned long OpFilter_SparseSVSim::measure(unsigned long targets) {
    const unsigned long values = sample(targets);
    postselect(values, targets);
    return values;
}

void OpFilter_SparseSVSim::postselect(unsigned long value, unsigned long mask) {
    if (mask == 0) {
        throw std::runtime_error("qc.postselect() must specify at least one qubit to measure.");
    }
    const KeyPattern wanted{key_bits(mask), key_bits(value)};
    double sum = 0.0;
    for (term_t& term : terms) {
        if (wanted.matches(term.key)) {
            sum += squared_magnitude(term.amplitude);
        } else {
            term.amplitude = {0.0, 0.0};
        }
    }
    if (std::isnan(sum)) return;
    if (sum == 0.0) refuse_projection();
    scale(terms, 1.0 / std::sqrt(sum));
}

double OpFilter_SparseSVSim::normalize() {
    double sum = 0.0;
    for (const term_t& term : terms) sum += squared_magnitude(term.amplitude);
    if (sum > 0.0) scale(terms, 1.0 / std::sqrt(sum));
    return sum;
}

void OpFilter_SparseSVSim::replace_by(unsigned long index) {
    terms.assign(1, {index * 2, {1.0, 0.0}});
}

void OpFilter_SparseSVSim::prepare_flags(long first_flag, unsigned long targets) {
    if (first_flag == 0) return;
    qpu_base().prepare_read_flags(first_flag, static_cast<unsigned long>(std::popcount(targets)));
}

// The flag number is incremented for every qubit. A negative one runs towards 0 and may pass it.
void OpFilter_SparseSVSim::store_flags(long first_flag, unsigned long targets,
                                       unsigned long values) {
    if (first_flag == 0) return;
    auto flag = static_cast<unsigned long>(first_flag);
    for_each_bit(targets, [&](unsigned long qubit) {
        qpu_base().set_read_flag(static_cast<long>(flag), (values & qubit) != 0 ? 1 : 0);
        ++flag;
    });
}

void OpFilter_SparseSVSim::read(const QPUOp& op) {
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    const unsigned long targets = op.target_mask & qubit_mask;
    if (targets == 0) return;
    prepare_flags(op.read_flag, targets);
    store_flags(op.read_flag, targets, measure(targets));
}

void OpFilter_SparseSVSim::apply_write(unsigned long value, unsigned long target_mask,
                                       long cond_flag, long read_flag) {
    if (!qpu_base().flag_condition(cond_flag)) return;
    const unsigned long targets = target_mask & qubit_mask;
    // All qubits are overwritten: no measurement is needed.
    if (targets == qubit_mask) return replace_by(value & qubit_mask);
    if (targets == 0) return;
    prepare_flags(read_flag, targets);
    const unsigned long measured = measure(targets);
    store_flags(read_flag, targets, measured);
    flip_qubits(terms, (value ^ measured) & targets);
}

void OpFilter_SparseSVSim::clear(unsigned long target_mask, long cond_flag) {
    apply_write(0, target_mask, cond_flag, 0);
}

}  // namespace Nimbrel
