#include "processors/run_program.h"

#include <exception>

#include "filter/opcodes.h"
#include "support/random.h"

namespace Nimbrel::Testing {
namespace {

const char* type_name(Engine engine) {
    constexpr const char* names[] = {"StreamQPU", "StreamSparseQPU", "StreamBitQPU",
                                     "StreamCliffordQPU"};
    return names[static_cast<unsigned>(engine)];
}

FilterPointer new_filter(const Program& program) {
    set_random_seed(program.seed);
    return FilterPointer(OpFilter::AllocateNew(nullptr, type_name(program.engine), 0, 0));
}

void prepare(OpFilter& filter, const Program& program) {
    auto& parameters = filter.qpu_base().sim_params;
    parameters["num_block_qubits"] = program.block_qubits;
    parameters["async"] = program.threads ? 1 : 0;
    QPUOp reset{};
    reset.opcode = OP_RESET;
    reset.target_mask = program.qubits;
    filter.put_instructions(&reset, 1);
    if (program.start.empty()) return;
    filter.push_state(program.start.data(), 0, program.start.size());
    if (program.normalizes) filter.normalize();
}

/// Calls `step` and adds the text of its error, if it fails.
template <typename Step>
void attempt(Fingerprint& fingerprint, Step&& step) {
    try {
        step();
    } catch (const std::exception& error) {
        fingerprint.add(std::string_view(error.what()));
    }
}

void add(Fingerprint& fingerprint, const complex_t& amplitude) {
    fingerprint.add(amplitude.re);
    fingerprint.add(amplitude.im);
}

void add_flags(Fingerprint& fingerprint, OpFilter& filter) {
    constexpr long last_flag = 128;
    unsigned long bits = 0;
    for (long flag = 2; flag < last_flag; ++flag) {
        bits = bits << 1 | static_cast<unsigned long>(filter.qpu_base().get_read_flag(flag));
        if (flag % 60 == 0) fingerprint.add(bits);
    }
    fingerprint.add(bits);
}

/// A qubit of a Clifford register is made certain, so that its measurement draws nothing.
void measure_without_draw(Fingerprint& fingerprint, OpFilter& filter, const Program::Chunk& chunk) {
    const unsigned long mask = 1UL << chunk.qubit;
    const double probability = filter.peek_read_probability(mask, mask, 0.0);
    fingerprint.add(probability);
    if (probability == 0.5) filter.postselect(chunk.value == 0 ? 0 : mask, mask);
    // A CNOT whose control is its target is no unitary gate. It may leave rows that are no state,
    // on which the qubit stays open.
    if (filter.peek_read_probability(mask, mask, 0.0) == 0.5) return;
    QPUOp read{};
    read.opcode = OP_READ;
    read.target_mask = mask;
    read.read_flag = 2 + static_cast<long>(chunk.qubit);
    filter.put_instructions(&read, 1);
}

void look(Fingerprint& fingerprint, OpFilter& filter, const Program& program,
          const Program::Chunk& chunk) {
    add_flags(fingerprint, filter);
    if (program.engine == Engine::bit) return;
    if (program.engine == Engine::clifford) {
        return measure_without_draw(fingerprint, filter, chunk);
    }
    const unsigned long mask = 1UL << chunk.qubit | 1;
    fingerprint.add(filter.peek_read_probability(chunk.value << chunk.qubit, mask, 0.0));
    fingerprint.add(filter.peek_read_probability(chunk.value << chunk.qubit, mask, 0.25));
    fingerprint.add(filter.pps(mask, mask >> 1));
}

void add_terms(Fingerprint& fingerprint, OpFilter& filter) {
    const unsigned long count = filter.peek_num_nonzero_terms();
    std::vector<unsigned long> indices(count);
    std::vector<complex_t> amplitudes(count);
    filter.peek_n_biggest_terms(count, indices.data(), amplitudes.data());
    fingerprint.add(count);
    for (unsigned long i = 0; i < count; ++i) {
        fingerprint.add(indices[i]);
        add(fingerprint, amplitudes[i]);
    }
}

void add_state(Fingerprint& fingerprint, OpFilter& filter, const Program& program) {
    if (program.engine == Engine::dense) {
        for (const complex_t& amplitude : pulled_amplitudes(filter, program.qubits)) {
            add(fingerprint, amplitude);
        }
    } else if (program.engine == Engine::sparse) {
        add_terms(fingerprint, filter);
    } else {
        std::string text;
        filter.pull_state(nullptr, text, 0);
        fingerprint.add(std::string_view(text));
    }
}

}  // namespace

FilterPointer run_program(const Program& program) {
    FilterPointer filter = new_filter(program);
    prepare(*filter, program);
    for (const Program::Chunk& chunk : program.chunks) {
        filter->put_instructions(chunk.records.data(), chunk.records.size());
    }
    return filter;
}

std::vector<complex_t> pulled_amplitudes(OpFilter& filter, unsigned long qubits) {
    std::vector<complex_t> amplitudes(1UL << qubits);
    std::string text;
    filter.pull_state(amplitudes.data(), text, amplitudes.size());
    return amplitudes;
}

unsigned long fingerprint_of_results(const Program& program) {
    Fingerprint fingerprint;
    const FilterPointer filter = new_filter(program);
    attempt(fingerprint, [&] { prepare(*filter, program); });
    for (const Program::Chunk& chunk : program.chunks) {
        attempt(fingerprint,
                [&] { filter->put_instructions(chunk.records.data(), chunk.records.size()); });
        attempt(fingerprint, [&] { look(fingerprint, *filter, program, chunk); });
    }
    attempt(fingerprint, [&] { add_state(fingerprint, *filter, program); });
    return fingerprint.value();
}

}  // namespace Nimbrel::Testing
