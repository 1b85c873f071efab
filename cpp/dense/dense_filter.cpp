#include "dense/dense_filter.h"

#include <bit>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "core_register/core_register.h"
#include "filter/array_checks.h"

namespace Nimbrel {
namespace {

// The kernels take any address at which a double may lie; the compiler relies on no less.
void require_alignment(const complex_t* buffer) {
    static_assert(alignof(complex_t) == 8);
    if (reinterpret_cast<std::uintptr_t>(buffer) % alignof(complex_t) == 0) return;
    throw std::runtime_error(
        "Error: override_state_buffer() needs a buffer that begins at a multiple of 8 bytes.");
}

/// 2^`qubits`, or the largest number where that has no room.
unsigned long terms_of(unsigned long qubits) {
    return qubits < 64 ? 1UL << qubits : std::numeric_limits<unsigned long>::max();
}

/// Amplitudes of the qubits that a mask selects.
unsigned long selected_terms(unsigned long mask) {
    return terms_of(static_cast<unsigned long>(std::popcount(mask)));
}

}  // namespace

void OpFilter_QPUSim::pull_state(complex_t* dest, std::string& /*info*/, unsigned long num_terms) {
    qpu->verify_allocated();
    require_amplitudes("pull_state", qpu->num_terms, num_terms);
    require_writable("pull_state", caller_arrays);
    qpu->pull_state_sv(dest, num_terms);
}

void OpFilter_QPUSim::pull_state_specific(std::string& info, complex_t* dest,
                                          unsigned long num_terms, unsigned long selector) {
    qpu->verify_allocated();
    const unsigned long needed =
        selector == 0 ? qpu->num_terms : selected_terms(selector & qpu->qubit_mask);
    require_amplitudes("pull_state_specific", needed, num_terms);
    require_writable("pull_state_specific", caller_arrays);
    qpu->pull_state_specific_sv(info, dest, selector, num_terms);
}

void OpFilter_QPUSim::push_state(const complex_t* src, unsigned long selector,
                                 unsigned long num_terms) {
    qpu->verify_allocated();
    require_amplitudes("push_state", selector == 0 ? qpu->num_terms : selected_terms(selector),
                       num_terms);
    qpu->push_state_sv(src, selector, num_terms);
}

void OpFilter_QPUSim::override_state_buffer(complex_t* buffer, unsigned long num_qubits) {
    require_amplitudes("override_state_buffer", terms_of(num_qubits), caller_arrays.amplitudes);
    require_alignment(buffer);
    require_writable("override_state_buffer", caller_arrays);
    qpu->reset(num_qubits, buffer);
}

double OpFilter_QPUSim::peek_read_probability(unsigned long value, unsigned long mask,
                                              double limit) {
    if (mask == 0) {
        throw std::runtime_error(
            "qc.peek_read_probability() must specify at least one qubit to measure.");
    }
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
    qpu->verify_allocated();
    require_amplitudes("check_state", qpu->num_terms, caller_arrays.amplitudes);
    return qpu->check_state(expected, tolerance, flag) ? 1 : 0;
}

double OpFilter_QPUSim::pps(unsigned long x_mask, unsigned long z_mask) {
    return qpu->pps(x_mask, z_mask);
}

void OpFilter_QPUSim::peek_n_biggest_terms(unsigned long count, unsigned long* indices,
                                           complex_t* amplitudes) {
    qpu->verify_allocated();
    if (count == 0) return;
    require_biggest_arrays(count, caller_arrays);
    qpu->peek_n_biggest_terms(count, indices, amplitudes);
}

void OpFilter_QPUSim::peek_value(unsigned long index, complex_t* dest) {
    qpu->verify_allocated();
    require_peek_array(caller_arrays);
    qpu->peek_value(index, dest);
}

void OpFilter_QPUSim::finish() { qpu->finish(); }

void OpFilter_QPUSim::set_random() { qpu->set_random(true); }

}  // namespace Nimbrel
