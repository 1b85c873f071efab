// The sparse filter's records and operations, on a new filter record by record and on a used one in
// the calls of the input.
#include <bit>

#include "filter/opcodes.h"
#include "owned_filter.h"
#include "sparse/sparse_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Fuzzing;

using SparseFilter = OwnedFilter<OpFilter_SparseSVSim>;

constexpr unsigned long sizes[] = {0, 1, 2, 3, 5, 62, 63, 64, 65, 1UL << 32, ~0UL};
constexpr unsigned long near_qubits[] = {0, 1, 2, 31, 61, 62, 63, 30};
constexpr double thresholds[] = {0.0, 1e-25, 0.3, -1.0};

/// Whether the longest list that a record can make is short.
bool keeps_list_short(const OpFilter_SparseSVSim& filter, const QPUOp& op) {
    constexpr std::size_t most_terms = 2048;
    const unsigned long masks = op.target_mask | op.cond_mask;
    const auto doublings = static_cast<unsigned>(std::popcount(masks & filter.qubit_mask));
    return doublings < 12 && filter.terms.size() << doublings <= most_terms;
}

void use_before(OpFilter_SparseSVSim& filter) {
    QPUOp records[] = {reset_record(7), {}, {}};
    records[1].opcode = records[2].opcode = OP_H;
    records[1].target_mask = 0x5B;
    records[2].target_mask = 0x2;
    filter.put_instructions(records, std::size(records));
}

Observation run(Scenario& scenario, unsigned long qubits, double threshold, bool used) {
    SparseFilter filter;
    if (used) use_before(*filter);
    filter->prune_threshold = threshold;
    const QPUOp op = reset_record(qubits);
    filter->put_instructions(&op, 1);
    RunOptions options{.cut = used ? Cut::as_decoded : Cut::single};
    options.admits = [&](const QPUOp& next) { return keeps_list_short(*filter, next); };
    Observation seen;
    run_scenario(scenario, *filter, options, seen);
    add_common_state(*filter, seen);
    for (const term_t& term : filter->terms) {
        seen.add(term.key);
        seen.add_number(term.amplitude.re);
        seen.add_number(term.amplitude.im);
    }
    return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteReader in(data, size);
    const unsigned kind = in.byte();
    const double threshold = thresholds[kind >> 6];
    const bool wide = (kind & 0x20) != 0;
    RecordShape shape{.qubits = wide ? 63UL : 1 + kind % 8, .sizes = sizes};
    if (wide) shape.near_qubits = near_qubits;
    Scenario scenario = decode_scenario(in, shape);
    const Observation first = run(scenario, shape.qubits, threshold, false);
    const Observation second = run(scenario, shape.qubits, threshold, true);
    require_same(first, second, "a new and a used filter", scenario);
    return 0;
}
