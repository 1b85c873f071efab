// The bit filter's records and operations, on a new filter record by record and on a used one in
// the calls of the input.
#include "bit/bit_filter.h"
#include "filter/opcodes.h"
#include "owned_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Fuzzing;

constexpr unsigned long sizes[] = {0, 1, 3, 64, 65, 128, 190, 1UL << 40, 1UL << 63, ~0UL};

Observation run(Scenario& scenario, unsigned long qubits, bool used) {
    OwnedFilter<OpFilter_BitQPUSim> filter;
    QPUOp records[] = {reset_record(used ? 300 : qubits), reset_record(qubits)};
    filter->put_instructions(records, std::size(records));
    Observation seen;
    run_scenario(scenario, *filter, {.cut = used ? Cut::as_decoded : Cut::single}, seen);
    add_common_state(*filter, seen);
    std::string text;
    filter->pull_state(nullptr, text, 0);
    seen.add_text(text);
    return seen;
}

/// The text of a register that is not there is a refusal.
Observation run_to_the_end(Scenario& scenario, unsigned long qubits, bool used) {
    try {
        return run(scenario, qubits, used);
    } catch (const std::exception& error) {
        Observation seen;
        seen.add_text(error.what());
        return seen;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned long first_sizes[] = {1, 3, 8, 63, 64, 65, 127, 130};
    ByteReader in(data, size);
    const unsigned long qubits = in.one_of(first_sizes);
    const RecordShape shape{.qubits = qubits, .sizes = sizes, .words = (qubits + 63) / 64};
    Scenario scenario = decode_scenario(in, shape);
    const Observation first = run_to_the_end(scenario, qubits, false);
    const Observation second = run_to_the_end(scenario, qubits, true);
    require_same(first, second, "a new and a used filter", scenario);
    return 0;
}
