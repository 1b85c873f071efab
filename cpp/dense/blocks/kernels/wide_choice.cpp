#include "dense/blocks/kernels/wide_gates.h"
#include "dense/blocks/kernels/width.h"

namespace Nimbrel {
namespace {

/// Whether no pair can qualify. A control on the target itself is tested on x, where the target bit
/// is 0.
bool has_no_pairs(const SlotGate& gate, const complex_t* upper, unsigned long n) {
    if (gate.kind == GateKind::phase || gate.kind == GateKind::sign_flip) return false;
    if (gate.target == 0) return upper == nullptr;
    return gate.target >= n || (gate.controls.pattern & gate.target) != 0;
}

}  // namespace

bool apply_wide(const SlotGate& gate, complex_t* lower, complex_t* upper, unsigned long n) {
    if (has_no_pairs(gate, upper, n)) return gate.kind == GateKind::exchange;
    const WidePairs pairs{.lower = lower,
                          .upper = upper,
                          .n = n,
                          .target = gate.target,
                          .mask = gate.controls.mask & ~gate.target & (n - 1),
                          .pattern = gate.controls.pattern};
    switch (gate.kind) {
        case GateKind::complex_matrix:
            return apply_complex_wide(pairs, gate.matrix->data());
        case GateKind::diagonal_matrix:
            return apply_diagonal_wide(pairs, gate.matrix->data());
        case GateKind::crossed_matrix:
            return apply_crossed_wide(pairs, gate.matrix->data());
        case GateKind::real_matrix:
            return apply_real_wide(pairs, gate.matrix->data());
        case GateKind::phase:
            multiply_wide(pairs, (*gate.matrix)[3]);
            return true;
        case GateKind::sign_flip:
            flip_signs_wide(pairs);
            return true;
        case GateKind::exchange:
            exchange_wide(pairs);
            return true;
        case GateKind::hadamard:
        case GateKind::compared_exchange:
            break;
    }
    return false;
}

}  // namespace Nimbrel
