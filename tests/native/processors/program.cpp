#include "processors/program.h"

namespace Nimbrel::Testing {
namespace {

/// Some registers are large enough for 512-bit vectors, and some for gates that wait.
unsigned long dense_qubits(unsigned number, RandomWords& random) {
    constexpr unsigned every_large_one = 40;
    if (number % every_large_one == 0) return 14 + random.below(2);
    return 1 + random.below(10);
}

unsigned long sparse_qubits(RandomWords& random) {
    return random.one_in(2) ? 1 + random.below(10) : 11 + random.below(52);
}

void add(Fingerprint& fingerprint, const QPUOp& op) {
    fingerprint.add(op.opcode);
    fingerprint.add(op.target_mask);
    fingerprint.add(op.cond_mask);
    fingerprint.add(op.angle);
    fingerprint.add(static_cast<unsigned long>(op.cond_flag));
    fingerprint.add(static_cast<unsigned long>(op.read_flag));
    fingerprint.add(op.cond_neg_mask);
    fingerprint.add(op.target_offset);
    fingerprint.add(op.cond_offset);
}

}  // namespace

Program make_program(unsigned number) {
    RandomWords random(number);
    switch (static_cast<Engine>(number % 4)) {
        case Engine::dense:
            return make_state_vector_program(Engine::dense, dense_qubits(number, random), random,
                                             exact_angles);
        case Engine::sparse:
            return make_state_vector_program(Engine::sparse, sparse_qubits(random), random,
                                             exact_angles);
        case Engine::bit:
            return make_bit_program(random);
        case Engine::clifford:
            break;
    }
    return make_clifford_program(random);
}

unsigned long fingerprint_of_input(const Program& program) {
    Fingerprint fingerprint;
    fingerprint.add(static_cast<unsigned long>(program.engine));
    fingerprint.add(program.qubits);
    fingerprint.add(program.block_qubits);
    fingerprint.add(program.threads ? 1UL : 0UL);
    fingerprint.add(0UL + program.seed);
    fingerprint.add(program.start.size());
    for (const complex_t& amplitude : program.start) {
        fingerprint.add(amplitude.re);
        fingerprint.add(amplitude.im);
    }
    for (const Program::Chunk& chunk : program.chunks) {
        fingerprint.add(chunk.records.size());
        for (const QPUOp& op : chunk.records) add(fingerprint, op);
        fingerprint.add(chunk.qubit);
        fingerprint.add(chunk.value);
    }
    return fingerprint.value();
}

}  // namespace Nimbrel::Testing
