#include "filter_calls.h"

#include <bit>
#include <limits>
#include <stdexcept>

#include "core_register/core_register.h"

namespace Nimbrel::Fuzzing {
namespace {

constexpr double parts[] = {
    0.0,
    1.0,
    0.6,
    -0.8,
    0.5,
    -0.0,
    1e-160,
    5e-324,
    1e200,
    std::numeric_limits<double>::infinity(),
    std::numeric_limits<double>::quiet_NaN(),
    -1.0,
    1e-13,
    0.70710678118654752,
    -0.25,
    1e308,
};

constexpr const char* parameters[] = {"num_block_qubits", "max_ram_size_gb", "max_num_threads",
                                      "randomized",       "use_opencl",      "verbose",
                                      "of another name"};

void require(bool met) {
    if (!met) throw std::runtime_error("the module refuses this array");
}

void pull(const CallArguments& a, OpFilter& filter, Observation& seen, bool specific) {
    const ArrayNeeds needs = specific
                                 ? filter.array_rules.pull_state_specific_needs(a.mask, a.length)
                                 : filter.array_rules.pull_state_needs(a.length);
    require(needs.amplitudes <= a.length);
    std::vector<complex_t> dest(a.length, {7.0, 7.0});
    std::string info;
    if (specific) {
        filter.pull_state_specific(info, dest.data(), a.length, a.mask);
    } else {
        filter.pull_state(dest.data(), info, a.length);
    }
    seen.add_text(info);
    seen.add_amplitudes(dest);
}

void push(const CallArguments& a, OpFilter& filter) {
    const unsigned long mask = a.count % 2 == 0 ? 0 : a.mask;
    require(filter.array_rules.push_state_needs(mask).amplitudes <= a.length);
    filter.push_state(a.amplitudes.data(), mask, a.length);
}

void check(const CallArguments& a, OpFilter& filter, Observation& seen) {
    const ArrayNeeds needs =
        filter.array_rules.check_state_needs(a.amplitudes.data(), a.length, a.number);
    require(needs.amplitudes <= a.length);
    seen.add(static_cast<unsigned long>(filter.check_state(a.amplitudes.data(), a.number, false)));
}

void peek_biggest(const CallArguments& a, OpFilter& filter, Observation& seen) {
    const ArrayNeeds needs = filter.array_rules.peek_n_biggest_terms_needs(a.count);
    require(needs.amplitudes <= a.length && needs.indices <= a.length);
    std::vector<unsigned long> indices(a.length, 7);
    std::vector<complex_t> amplitudes(a.length, {7.0, 7.0});
    filter.peek_n_biggest_terms(a.count, indices.data(), amplitudes.data());
    seen.add(indices);
    seen.add_amplitudes(amplitudes);
}

void peek_one(const CallArguments& a, OpFilter& filter, Observation& seen) {
    require(filter.array_rules.peek_value_needs().amplitudes <= a.length);
    std::vector<complex_t> dest(a.length, {7.0, 7.0});
    filter.peek_value(a.value, dest.data());
    seen.add_amplitudes(dest);
}

// A chosen `async` would start a thread a block; the settings that are compared choose it.
void set_parameter(const CallArguments& a, OpFilter& filter) {
    filter.qpu->sim_params[parameters[a.count % std::size(parameters)]] = a.value;
}

void use_connection(OpFilter& filter, Observation& seen) {
    std::string status;
    filter.get_status(status);
    seen.add_text(status);
    std::string result;
    filter.connect("127.0.0.1", -1, 0.0, result);
    filter.disconnect(result);
    seen.add_text(result);
}

void take_event(OpFilter& filter, Observation& seen) {
    seen.add(filter.events.size());
    if (!filter.events.empty()) filter.events.erase(filter.events.begin());
}

void reserve(const CallArguments& a, OpFilter& filter, Observation& seen) {
    if (a.value % 2 == 0) {
        seen.add(static_cast<unsigned long>(filter.qpu_base().reserve_qubits(a.count)));
    } else {
        filter.qpu_base().release_qubits(static_cast<int>(a.flag));
    }
}

}  // namespace

std::vector<complex_t> decode_amplitudes(ByteReader& in, unsigned long length) {
    std::vector<complex_t> amplitudes(length);
    for (complex_t& amplitude : amplitudes) {
        if (in.empty()) break;
        const unsigned both = in.byte();
        amplitude = {parts[both % 16], parts[both / 16]};
    }
    return amplitudes;
}

void make_call(const CallArguments& a, OpFilter& filter, Observation& seen) {
    switch (a.call) {
        case Call::pull_state:
            return pull(a, filter, seen, false);
        case Call::pull_state_specific:
            return pull(a, filter, seen, true);
        case Call::push_state:
            return push(a, filter);
        case Call::check_state:
            return check(a, filter, seen);
        case Call::set_random:
            return filter.set_random();
        case Call::normalize:
            return seen.add_number(filter.normalize());
        case Call::pps:
            return seen.add_number(filter.pps(a.mask, a.value));
        case Call::postselect:
            return filter.postselect(a.value, a.mask);
        case Call::peek_num_nonzero_terms:
            return seen.add(filter.peek_num_nonzero_terms());
        case Call::peek_n_biggest_terms:
            return peek_biggest(a, filter, seen);
        case Call::peek_value:
            return peek_one(a, filter, seen);
        case Call::peek_read_probability:
            return seen.add_number(filter.peek_read_probability(a.value, a.mask, a.number));
        case Call::fetch_read_result:
            return seen.add(filter.qpu_base().fetch_read_result(a.flag, a.count));
        case Call::set_parameter:
            return set_parameter(a, filter);
        case Call::debug_qubits:
            filter.qpu_base().debug_qubits = a.value % 2 != 0;
            return;
        case Call::finish:
            return filter.finish();
        case Call::connection:
            return use_connection(filter, seen);
        case Call::next_event:
            return take_event(filter, seen);
        case Call::reservation:
            return reserve(a, filter, seen);
        case Call::override_state_buffer:  // memory that outlives the call: the dense target's
        case Call::count:
            return;
    }
}

}  // namespace Nimbrel::Fuzzing
