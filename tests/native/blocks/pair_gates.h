/// The five gates with a target bit, each as the block's method and as its scalar form.
#pragma once

#include <functional>

#include "blocks/block_support.h"

namespace Nimbrel::Testing {

/// Matrices of one round; they outlive the tasks that read them.
struct Matrices {
    complex_t complex_entries[4];
    double real_entries[4];

    explicit Matrices(Draws& draws) {
        for (complex_t& entry : complex_entries) entry = draws.amplitude();
        for (double& entry : real_entries) entry = draws.amplitude().re;
    }
};

struct PairGate {
    const char* name;
    bool conditional;  ///< takes a condition at all
    std::function<void(CoreBlock&, unsigned long target, Condition, const Matrices&)> run;
    std::function<void(complex_t& x, complex_t& y, const Matrices&)> scalar;

    friend void PrintTo(const PairGate& gate, std::ostream* out) { *out << gate.name; }
};

inline const std::vector<PairGate>& pair_gates() {
    static const std::vector<PairGate> gates{
        {"op_not", false,
         [](CoreBlock& block, unsigned long t, Condition, const Matrices&) { block.op_not(t); },
         [](complex_t& x, complex_t& y, const Matrices&) { scalar_not(x, y); }},
        {"op_cnot", true,
         [](CoreBlock& block, unsigned long t, Condition c, const Matrices&) {
             block.op_cnot(t, c.mask, c.negation);
         },
         [](complex_t& x, complex_t& y, const Matrices&) { scalar_cnot(x, y); }},
        {"op_hadamard", true,
         [](CoreBlock& block, unsigned long t, Condition c, const Matrices&) {
             block.op_hadamard(t, c.mask, c.negation);
         },
         [](complex_t& x, complex_t& y, const Matrices&) { scalar_hadamard(x, y); }},
        {"op_complex2x2", true,
         [](CoreBlock& block, unsigned long t, Condition c, const Matrices& m) {
             block.op_complex2x2(t, c.mask, m.complex_entries, c.negation);
         },
         [](complex_t& x, complex_t& y, const Matrices& m) {
             scalar_complex2x2(x, y, m.complex_entries);
         }},
        {"op_real2x2", true,
         [](CoreBlock& block, unsigned long t, Condition c, const Matrices& m) {
             block.op_real2x2(t, c.mask, m.real_entries, c.negation);
         },
         [](complex_t& x, complex_t& y, const Matrices& m) {
             scalar_real2x2(x, y, m.real_entries);
         }},
    };
    return gates;
}

}  // namespace Nimbrel::Testing
