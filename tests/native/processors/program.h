/// Random programs for comparison between processors. Plain data, for one thread.
#pragma once

#include <array>
#include <span>
#include <vector>

#include "filter/qpu_op.h"
#include "processors/random_words.h"
#include "support/complex.h"

namespace Nimbrel::Testing {

/// Angles in degrees. Sine and cosine of each, and of its half, lie so far from the middle of two
/// doubles that every good library rounds them alike.
inline constexpr std::array exact_angles{
    0.0,   -0.0,  15.0,  30.0,  45.0,   60.0,  75.0,   90.0,    135.0,    180.0,    270.0,
    300.0, 360.0, 540.0, -15.0, -45.0,  -90.0, -150.0, -180.0,  -300.0,   -360.0,   0.5,
    17.0,  43.0,  -23.0, 33.25, -77.75, 1e-9,  5e-300, 13.0625, 123458.5, -98767.25};

enum class Engine : unsigned char { dense, sparse, bit, clifford };

/// What one filter gets: chunks of records, and after each chunk a look at one qubit.
struct Program {
    struct Chunk {
        std::vector<QPUOp> records;
        unsigned long qubit;  ///< below 64
        unsigned long value;
    };

    Engine engine;
    unsigned long qubits;
    unsigned long block_qubits = 0;  ///< dense
    bool threads = false;            ///< dense
    unsigned seed = 0;
    std::vector<complex_t> start;  ///< the state that is pushed; empty for the state after a reset
    bool normalizes = true;        ///< the pushed state
    std::vector<Chunk> chunks;
};

inline constexpr unsigned num_programs = 500;

/// The programs go through the engines in turn.
Program make_program(unsigned number);

/// A program on the dense or the sparse filter with any angle, from `angles` numbers in degrees.
Program make_state_vector_program(Engine engine, unsigned long qubits, RandomWords& random,
                                  std::span<const double> angles);
/// The same without measurements, so that each result is a sum of few products.
Program make_gate_program(Engine engine, unsigned long qubits, RandomWords& random,
                          std::span<const double> angles);
Program make_bit_program(RandomWords& random);
Program make_clifford_program(RandomWords& random);

/// A hash of all that the engine gets.
unsigned long fingerprint_of_input(const Program& program);

}  // namespace Nimbrel::Testing
