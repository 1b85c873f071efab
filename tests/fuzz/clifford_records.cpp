// The Clifford filter's records and operations. Each input runs on narrow vectors record by record,
// and on wide vectors in the calls of the input, in one of two forms of the tableau.
#include "clifford/clifford_filter.h"
#include "clifford/tableau/string_product.h"
#include "filter/opcodes.h"
#include "owned_filter.h"

namespace {

using namespace Nimbrel;
using namespace Nimbrel::Fuzzing;

constexpr unsigned long sizes[] = {0,   1, 2, 3, 5, 8, 3, 65, 1UL << 32, 100'000, (1UL << 32) + 3,
                                   ~0UL};
constexpr unsigned long longest_text = 70;  ///< qubits; a longer tableau is measured instead

void observe_tableau(OpFilter_CliffordQPUSim& filter, Observation& seen) {
    std::string text;
    filter.pull_state(nullptr, text, 0);
    seen.add_text(text);
}

/// Measures some qubits of a long register: the lowest and the highest.
void observe_outcomes(OpFilter_CliffordQPUSim& filter, unsigned long qubits) {
    constexpr unsigned long measured = 6;
    for (const unsigned long base : {0UL, qubits - measured}) {
        QPUOp op{};
        op.opcode = OP_READ;
        op.target_mask = (1UL << measured) - 1;
        op.target_offset = base;
        op.read_flag = static_cast<long>(2 + base);
        filter.put_instructions(&op, 1);
    }
}

void observe(OpFilter_CliffordQPUSim& filter, Observation& seen, unsigned long most_written) {
    try {
        const unsigned long qubits = filter.qpu_base().num_qubits & 0xFFFFFFFF;
        if (qubits <= most_written) {
            observe_tableau(filter, seen);
        } else {
            observe_outcomes(filter, qubits);
        }
    } catch (const std::exception& error) {
        seen.add_text(error.what());
    }
    add_common_state(filter, seen);
}

/// Mostly small. The shortest strings of wide vectors have 193 qubits, which take long.
unsigned long register_size(unsigned choice) {
    if (choice == 63) return 200;
    return choice < 61 ? 1 + choice % 8 : choice + 3;
}

Observation run(Scenario& scenario, unsigned long qubits, bool wide, bool by_rows,
                unsigned long most_written) {
    use_wide_strings(wide);
    OwnedFilter<OpFilter_CliffordQPUSim> filter;
    QPUOp records[] = {reset_record(qubits), reset_record(qubits)};
    filter->put_instructions(records, wide ? 2 : 1);
    // To project on the value that a qubit has changes the form of the tableau and not the state.
    if (by_rows) filter->postselect(0, 1);
    RunOptions options{.cut = wide ? Cut::as_decoded : Cut::single};
    options.makes = [&](const CallArguments& call) {
        return call.call != Call::pull_state || filter->qpu_base().num_qubits <= longest_text;
    };
    Observation seen;
    run_scenario(scenario, *filter, options, seen);
    observe(*filter, seen, most_written);
    return seen;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteReader in(data, size);
    const unsigned kind = in.byte();
    const unsigned long qubits = register_size(kind & 0x3F);
    const RecordShape shape{.qubits = qubits, .sizes = sizes, .words = (qubits + 63) / 64};
    Scenario scenario = decode_scenario(in, shape);
    if (qubits > longest_text && scenario.size() > 6) scenario.resize(6);
    const bool by_rows = (kind & 0x40) != 0 && (qubits <= longest_text || (kind & 0x80) != 0);
    // The text of two words takes as long as all records.
    constexpr unsigned long short_text = 32;
    const unsigned long most_written = (kind & 0x80) != 0 ? longest_text : short_text;
    const Observation narrow = run(scenario, qubits, false, false, most_written);
    const Observation wide = run(scenario, qubits, true, by_rows, most_written);
    require_same(narrow, wide, "vector widths or forms of a tableau", scenario);
    return 0;
}
