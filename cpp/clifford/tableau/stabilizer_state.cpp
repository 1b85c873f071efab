#include "clifford/tableau/stabilizer_state.h"

#include <algorithm>
#include <chrono>

#include "support/bits.h"

namespace {

/// Number of bytes that the words of all rows of both tables need.
std::size_t arena_bytes(unsigned qubits) {
    constexpr std::size_t parts = 4;  // x and z in each table
    const std::size_t bytes =
        parts * qubits * Nimbrel::words_for_bits(qubits) * sizeof(unsigned long);
    return std::max<std::size_t>(bytes, 1);  // a monotonic_buffer_resource of size 0 is not allowed
}

}  // namespace

// Does not overflow: the largest unsigned number of qubits needs a little more than 2^63 bytes.
unsigned long StabilizerState::bytes_of(unsigned qubits) {
    constexpr unsigned long tables = 2;
    return arena_bytes(qubits) + tables * qubits * sizeof(Stabilizer);
}

unsigned long StabilizerState::seed_from_clock() {
    return static_cast<unsigned long>(std::chrono::system_clock::now().time_since_epoch().count());
}

StabilizerState::StabilizerState(unsigned qubits)
    : arena(arena_bytes(qubits)),
      num_qubits(qubits),
      num_rows(qubits),
      scratch(qubits),
      rng(seed_from_clock()) {
    stabilizers.reserve(qubits);
    destabilizers.reserve(qubits);
    for (unsigned qubit = 0; qubit < qubits; ++qubit) {
        stabilizers.emplace_back(qubits, &arena).z.set(qubit);
        destabilizers.emplace_back(qubits, &arena).x.set(qubit);
    }
}
