#include "scenario.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>

#include "filter_calls.h"

namespace Nimbrel::Fuzzing {
namespace {

constexpr std::size_t most_steps = 40;
constexpr unsigned first_call_byte = 0xF0;

CallArguments decode_call(ByteReader& in, const RecordShape& shape) {
    CallArguments made;
    made.call = static_cast<Call>(in.below(static_cast<unsigned>(Call::count)));
    const unsigned kind = in.byte();
    made.mask = decode_mask(in, shape, kind);
    made.value = decode_mask(in, shape, kind >> 2);
    made.flag = decode_flag(in);
    made.count = kind >= 0xF0 ? in.word() : in.below(12);
    made.number = decode_angle(in);
    made.length = (kind & 0x40) != 0 ? in.below(70) : 1UL << in.below(7);
    if (made.call == Call::push_state || made.call == Call::check_state ||
        made.call == Call::override_state_buffer) {
        made.amplitudes = decode_amplitudes(in, made.length);
    }
    return made;
}

void run_one_by_one(std::vector<QPUOp>& records, OpFilter& filter, const RunOptions& options) {
    for (std::size_t i = 0; i < records.size();) {
        if (options.admits && !options.admits(records[i])) {
            records.erase(records.begin() + static_cast<long>(i));
            continue;
        }
        filter.put_instructions(&records[i], 1);
        ++i;
    }
}

void run_records(std::vector<QPUOp>& records, OpFilter& filter, const RunOptions& options) {
    if (options.cut == Cut::single) return run_one_by_one(records, filter, options);
    // A copy of its own size, so that a read past its end is found.
    const std::vector<QPUOp> exact(records);
    filter.put_instructions(exact.data(), exact.size());
}

void print_record(const QPUOp& op) {
    std::fprintf(stderr,
                 "  %lx targets %lx controls %lx negated %lx angle %a flags %ld %ld at %lx %lx\n",
                 op.opcode, op.target_mask, op.cond_mask, op.cond_neg_mask, op.angle, op.cond_flag,
                 op.read_flag, op.target_offset, op.cond_offset);
}

void print_scenario(const Scenario& scenario) {
    for (const Step& step : scenario) {
        const CallArguments& a = step.other;
        if (step.is_records) {
            std::fprintf(stderr, "records\n");
            for (const QPUOp& op : step.records) print_record(op);
        } else {
            std::fprintf(
                stderr, "operation %u: mask %lx value %lx count %lu length %lu number %a\n",
                static_cast<unsigned>(a.call), a.mask, a.value, a.count, a.length, a.number);
        }
    }
}

}  // namespace

void require_same(const Observation& first, const Observation& second, const char* settings,
                  const Scenario& scenario) {
    const auto a = first.words();
    const auto b = second.words();
    if (std::ranges::equal(a, b)) return;
    const auto [in_a, in_b] = std::ranges::mismatch(a, b);
    print_scenario(scenario);
    std::fprintf(stderr, "%s differ: %zu and %zu results, first at %td\n", settings, a.size(),
                 b.size(), in_a - a.begin());
    if (in_a != a.end() && in_b != b.end()) {
        std::fprintf(stderr, "%lx and %lx, as numbers %a and %a\n", *in_a, *in_b,
                     std::bit_cast<double>(*in_a), std::bit_cast<double>(*in_b));
    }
    std::abort();
}

Scenario decode_scenario(ByteReader& in, const RecordShape& shape) {
    Scenario scenario;
    bool open = false;
    for (std::size_t i = 0; i < most_steps && !in.empty(); ++i) {
        const unsigned first = in.byte();
        if (first >= first_call_byte) {
            scenario.push_back({.is_records = false, .other = decode_call(in, shape)});
            open = false;
            continue;
        }
        if (!open) scenario.emplace_back();
        const DecodedRecord decoded = decode_record(first, in, shape);
        scenario.back().records.push_back(decoded.op);
        open = !decoded.ends_call;
    }
    return scenario;
}

void run_scenario(Scenario& scenario, OpFilter& filter, const RunOptions& options,
                  Observation& seen) {
    for (Step& step : scenario) {
        try {
            if (step.is_records) {
                run_records(step.records, filter, options);
            } else if (!options.makes || options.makes(step.other)) {
                make_call(step.other, filter, seen);
            }
        } catch (const std::exception& error) {
            seen.add_text(error.what());
        }
    }
}

void add_common_state(const OpFilter& filter, Observation& seen) {
    const QPU_Base& base = filter.qpu_base();
    seen.add(base.num_qubits);
    seen.add(base.read_flags);
    seen.add(filter.event_stack.ids);
    for (const OpEvent& event : filter.events) {
        seen.add_text(event.name);
        seen.add_text(event.message);
        seen.add(event.code);
        seen.add(event.ids);
    }
}

}  // namespace Nimbrel::Fuzzing
