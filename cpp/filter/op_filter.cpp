#include "filter/op_filter.h"

#include <memory>
#include <stdexcept>
#include <utility>

#include "core_register/core_register.h"

namespace Nimbrel {

OpFilter::OpFilter(const ArrayRules* rules) : array_rules(*rules) {
    auto owned_register = std::make_unique<QPU>(0, this);
    owned_register->report_event = [this](std::string name, std::string message,
                                          unsigned int code) {
        queue_event(std::move(name), std::move(message), code, handle);
    };
    filter_registry.emplace(next_native_handle, this);
    handle = next_native_handle++;
    qpu = owned_register.release();
    register_base = qpu;
}

OpFilter::~OpFilter() { delete qpu; }

void OpFilter::queue_event(std::string name, std::string message, unsigned int code,
                           unsigned long aux) {
    events.push_back({.name = std::move(name),
                      .message = std::move(message),
                      .code = code,
                      .aux = aux,
                      .ids = event_stack.ids,
                      .values = event_stack.values});
}

void OpFilter::connect(const std::string& /*host*/, int /*port*/, double /*timeout*/,
                       std::string& /*result*/) {}

void OpFilter::disconnect(std::string& /*result*/) {}

void OpFilter::get_status(std::string& /*result*/) {}

void OpFilter::pull_state(complex_t* /*dest*/, std::string& /*info*/, unsigned long /*num_terms*/) {
    throw std::runtime_error("Error: no QPU data for qc.pull_state()");
}

void OpFilter::pull_state_specific(std::string& /*info*/, complex_t* /*dest*/,
                                   unsigned long /*num_terms*/, unsigned long /*selector*/) {
    throw std::runtime_error("Error: no QPU data for qc.pull_state_specific()");
}

void OpFilter::push_state(const complex_t* /*src*/, unsigned long /*selector*/,
                          unsigned long /*num_terms*/) {
    throw std::runtime_error("Error: no QPU data for qc.push_state()");
}

void OpFilter::override_state_buffer(complex_t* /*buffer*/, unsigned long /*num_qubits*/) {
    throw std::runtime_error(
        "Error: override_state_buffer is not implemented for this filter type.");
}

double OpFilter::peek_read_probability(unsigned long /*value*/, unsigned long /*mask*/,
                                       double /*limit*/) {
    throw std::runtime_error("Error: no QPU data for qc.peek_read_probability()");
}

void OpFilter::postselect(unsigned long /*value*/, unsigned long /*mask*/) {}

// The text of peek_read_probability(), because front ends compare with it.
unsigned long OpFilter::peek_num_nonzero_terms() {
    throw std::runtime_error("Error: no QPU data for qc.peek_read_probability()");
}

double OpFilter::normalize() { return 1.0; }

int OpFilter::check_state(const complex_t* /*expected*/, double /*tolerance*/,
                          bool /*flag*/) const {
    return 1;
}

double OpFilter::pps(unsigned long /*x_mask*/, unsigned long /*z_mask*/) { return 0.0; }

void OpFilter::peek_n_biggest_terms(unsigned long /*count*/, unsigned long* /*indices*/,
                                    complex_t* /*amplitudes*/) {}

void OpFilter::peek_value(unsigned long /*index*/, complex_t* /*dest*/) {}

void OpFilter::finish() {}

void OpFilter::set_random() {}

}  // namespace Nimbrel
