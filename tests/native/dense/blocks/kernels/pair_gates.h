/// The five gates with a target bit, each as the block's method and as its scalar form; the complex
/// matrix once for every pattern of zeros that has a kernel of its own.
#pragma once

#include <functional>

#include "dense/blocks/block_support.h"

namespace Nimbrel::Testing {

/// The matrices of one round.
struct Matrices {
    complex_t complex_entries[4];
    complex_t diagonal_entries[4];  ///< zeros beside the diagonal
    complex_t crossed_entries[4];   ///< real on the diagonal, imaginary beside it
    double real_entries[4];

    explicit Matrices(Draws& draws) {
        for (complex_t& entry : complex_entries) entry = draws.amplitude();
        for (double& entry : real_entries) entry = draws.amplitude().re;
        for (const int i : {0, 3}) {
            diagonal_entries[i] = draws.amplitude();
            crossed_entries[i] = {draws.amplitude().re, draws.zero()};
        }
        for (const int i : {1, 2}) {
            diagonal_entries[i] = {draws.zero(), draws.zero()};
            crossed_entries[i] = {draws.zero(), draws.amplitude().im};
        }
    }
};

struct PairGate {
    const char* name;
    bool conditional;  ///< takes a condition at all
    std::function<void(CoreBlock&, unsigned long target, Condition, const Matrices&)> run;
    std::function<void(complex_t& x, complex_t& y, const Matrices&)> scalar;

    friend void PrintTo(const PairGate& gate, std::ostream* out) { *out << gate.name; }
};

/// The gate of a complex matrix, with the entries of one shape.
inline PairGate complex2x2_gate(const char* name, complex_t (Matrices::*entries)[4]) {
    return {name, true,
            [entries](CoreBlock& block, unsigned long t, Condition c, const Matrices& m) {
                block.op_complex2x2(t, slots_of(c), GateMatrix::complex(m.*entries));
            },
            [entries](complex_t& x, complex_t& y, const Matrices& m) {
                scalar_complex2x2(x, y, m.*entries);
            }};
}

inline const std::vector<PairGate>& pair_gates() {
    static const std::vector<PairGate> gates{
        {"op_not", false,
         [](CoreBlock& block, unsigned long t, Condition, const Matrices&) { block.op_not(t); },
         [](complex_t& x, complex_t& y, const Matrices&) { scalar_not(x, y); }},
        {"op_cnot", true,
         [](CoreBlock& block, unsigned long t, Condition c, const Matrices&) {
             block.op_cnot(t, slots_of(c));
         },
         [](complex_t& x, complex_t& y, const Matrices&) { scalar_cnot(x, y); }},
        {"op_hadamard", true,
         [](CoreBlock& block, unsigned long t, Condition c, const Matrices&) {
             block.op_hadamard(t, slots_of(c));
         },
         [](complex_t& x, complex_t& y, const Matrices&) { scalar_hadamard(x, y); }},
        complex2x2_gate("op_complex2x2", &Matrices::complex_entries),
        complex2x2_gate("op_complex2x2 of a diagonal", &Matrices::diagonal_entries),
        complex2x2_gate("op_complex2x2 of a cross", &Matrices::crossed_entries),
        {"op_real2x2", true,
         [](CoreBlock& block, unsigned long t, Condition c, const Matrices& m) {
             block.op_real2x2(t, slots_of(c), GateMatrix::real(m.real_entries));
         },
         [](complex_t& x, complex_t& y, const Matrices& m) {
             scalar_real2x2(x, y, m.real_entries);
         }},
    };
    return gates;
}

}  // namespace Nimbrel::Testing
