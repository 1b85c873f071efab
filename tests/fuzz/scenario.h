/// A scenario: calls of records and other operations on one filter, from the bytes of an input.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "filter/op_filter.h"
#include "observation.h"
#include "record_decoder.h"

namespace Nimbrel::Fuzzing {

/// The operations of a filter beside its records.
enum class Call : unsigned {
    pull_state,
    pull_state_specific,
    push_state,
    check_state,
    override_state_buffer,
    set_random,
    normalize,
    pps,
    postselect,
    peek_num_nonzero_terms,
    peek_n_biggest_terms,
    peek_value,
    peek_read_probability,
    fetch_read_result,
    set_parameter,
    debug_qubits,
    finish,
    connection,
    next_event,
    reservation,
    count
};

/// Arguments of any call; each call reads those it has.
struct CallArguments {
    Call call{};
    unsigned long length = 0;  ///< of the caller's array
    unsigned long mask = 0;
    unsigned long value = 0;
    unsigned long count = 0;
    double number = 0.0;
    long flag = 0;
    std::vector<complex_t> amplitudes;  ///< contents of the array that the call brings
};

/// Records of one call of `put_instructions`, or another operation.
struct Step {
    bool is_records = true;
    std::vector<QPUOp> records = {};
    CallArguments other = {};
};

using Scenario = std::vector<Step>;

/// The steps of an input, at most 40 records and operations.
Scenario decode_scenario(ByteReader& in, const RecordShape& shape);

/// How records are handed to a filter.
enum class Cut { as_decoded, single };

/// Settings of a run that its steps depend on.
struct RunOptions {
    Cut cut = Cut::as_decoded;
    /// Called before each record; a record that it refuses is left out of the scenario.
    std::function<bool(const QPUOp&)> admits = {};
    /// Whether an operation may be made; others are left out.
    std::function<bool(const CallArguments&)> makes = {};
};

/// Runs a scenario and adds what its calls return. Arrays meet the filter's needs, or the call is
/// refused as the module refuses it. Leaves out of `scenario` what the options refuse.
void run_scenario(Scenario& scenario, OpFilter& filter, const RunOptions& options,
                  Observation& seen);

/// Adds what every filter has: read flags, events, open events.
void add_common_state(const OpFilter& filter, Observation& seen);

/// Ends the process, which the fuzzer reports, if two runs have shown different results. `settings`
/// names what they differ in.
void require_same(const Observation& first, const Observation& second, const char* settings,
                  const Scenario& scenario);

/// The capacity of read flags during fuzzing: the ends of their range are reached by small tables.
inline constexpr unsigned long few_flags = 997;

}  // namespace Nimbrel::Fuzzing
