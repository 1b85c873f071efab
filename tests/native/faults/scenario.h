/// `Scenario`: a program for one filter, run once for each allocation and each thread of it that
/// can fail.
#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "core_register/core_register.h"
#include "filter/op_filter.h"
#include "filter/opcodes.h"
#include "record.h"

namespace Nimbrel::Testing {

/// What a reset leaves when it fails.
enum class FailedReset { leaves_none, leaves_the_register };

/// One call of a filter. A step that fails must leave the state as it was, and it must be possible
/// to run it again.
struct Step {
    std::string name;
    std::function<void(OpFilter&)> act;
    bool is_reset = false;
};

struct Scenario {
    std::function<OpFilter*()> make;
    /// All that can be seen of the simulated state; "none" without a register.
    std::function<std::string(OpFilter&)> seen;
    FailedReset failed_reset = FailedReset::leaves_none;
    /// A reset to a size that no step has.
    std::function<void(OpFilter&)> other_reset;
    std::vector<Step> steps;
};

/// Fails, for each step, each of its allocations in turn. Checks what the failure leaves, that the
/// program goes on to the result that it has without a failure, and that nothing leaks.
void expect_to_survive_every_failed_allocation(const Scenario& scenario);

/// The same for each thread that a step creates.
void expect_to_survive_every_failed_thread(const Scenario& scenario);

/// The read flags, events and mask extensions of any filter.
std::string common_state(OpFilter& filter);

template <typename Values>
void write_values(std::ostream& out, const Values& values) {
    for (const auto& value : values) out << value << ' ';
    out << '\n';
}

/// Amplitudes with all their bits.
std::string text_of(const std::vector<complex_t>& amplitudes);

/// A step of one record.
Step record_step(const std::string& name, unsigned long opcode, const Words& words = {});

}  // namespace Nimbrel::Testing
