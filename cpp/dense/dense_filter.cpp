#include "dense/dense_filter.h"

#include <bit>
#include <limits>
#include <stdexcept>

#include "core_register/core_register.h"
#include "filter/shared_records.h"

namespace Nimbrel {
namespace {

/// 2^`qubits`, or the largest number if 2^`qubits` does not fit.
unsigned long terms_of(unsigned long qubits) {
    return qubits < 64 ? 1UL << qubits : std::numeric_limits<unsigned long>::max();
}

/// Amplitudes of the qubits that a mask selects.
unsigned long selected_terms(unsigned long mask) {
    return terms_of(static_cast<unsigned long>(std::popcount(mask)));
}

}  // namespace

OpFilter_QPUSim::OpFilter_QPUSim() : OpFilter(this) {}

ArrayNeeds OpFilter_QPUSim::pull_state_needs(unsigned long /*length*/) const {
    qpu->verify_allocated();
    return {.amplitudes = qpu->num_terms, .writable = true};
}

ArrayNeeds OpFilter_QPUSim::pull_state_specific_needs(unsigned long selector,
                                                      unsigned long length) const {
    if (selector == 0) return pull_state_needs(length);
    qpu->verify_allocated();
    return {.amplitudes = selected_terms(selector & qpu->qubit_mask), .writable = true};
}

ArrayNeeds OpFilter_QPUSim::push_state_needs(unsigned long selector) const {
    qpu->verify_allocated();
    return {.amplitudes = selector == 0 ? qpu->num_terms : selected_terms(selector)};
}

ArrayNeeds OpFilter_QPUSim::check_state_needs(const complex_t* /*expected*/,
                                              unsigned long /*length*/,
                                              double /*tolerance*/) const {
    qpu->verify_allocated();
    return {.amplitudes = qpu->num_terms};
}

// The kernels accept any address at which a double may lie; the compiler relies on no less.
ArrayNeeds OpFilter_QPUSim::override_state_buffer_needs(unsigned long num_qubits) const {
    return {.amplitudes = terms_of(num_qubits), .alignment = alignof(complex_t), .writable = true};
}

ArrayNeeds OpFilter_QPUSim::peek_n_biggest_terms_needs(unsigned long count) const {
    qpu->verify_allocated();
    return {.amplitudes = count, .indices = count, .writable = count != 0};
}

ArrayNeeds OpFilter_QPUSim::peek_value_needs() const {
    qpu->verify_allocated();
    return {.amplitudes = 1, .writable = true};
}

void OpFilter_QPUSim::pull_state(complex_t* dest, std::string& /*info*/, unsigned long num_terms) {
    qpu->pull_state_sv(dest, num_terms);
}

void OpFilter_QPUSim::pull_state_specific(std::string& info, complex_t* dest,
                                          unsigned long num_terms, unsigned long selector) {
    qpu->pull_state_specific_sv(info, dest, selector, num_terms);
}

void OpFilter_QPUSim::push_state(const complex_t* src, unsigned long selector,
                                 unsigned long num_terms) {
    qpu->push_state_sv(src, selector, num_terms);
}

void OpFilter_QPUSim::override_state_buffer(complex_t* buffer, unsigned long num_qubits) {
    qpu->reset(num_qubits, buffer);
}

double OpFilter_QPUSim::peek_read_probability(unsigned long value, unsigned long mask,
                                              double limit) {
    require_peek_mask(mask);
    return qpu->peek_read_probability_sv(value, mask, limit);
}

void OpFilter_QPUSim::postselect(unsigned long value, unsigned long mask) {
    if (mask == 0) {
        throw std::runtime_error("qc.postselect() must specify at least one qubit to postselect.");
    }
    qpu->postselect_sv(value, mask);
}

double OpFilter_QPUSim::normalize() { return qpu->normalize(); }

int OpFilter_QPUSim::check_state(const complex_t* expected, double tolerance, bool flag) const {
    return qpu->check_state(expected, tolerance, flag) ? 1 : 0;
}

double OpFilter_QPUSim::pps(unsigned long x_mask, unsigned long z_mask) {
    return qpu->pps(x_mask, z_mask);
}

void OpFilter_QPUSim::peek_n_biggest_terms(unsigned long count, unsigned long* indices,
                                           complex_t* amplitudes) {
    qpu->peek_n_biggest_terms(count, indices, amplitudes);
}

void OpFilter_QPUSim::peek_value(unsigned long index, complex_t* dest) {
    qpu->peek_value(index, dest);
}

void OpFilter_QPUSim::finish() { qpu->finish(); }

void OpFilter_QPUSim::set_random() { qpu->set_random(true); }

}  // namespace Nimbrel
