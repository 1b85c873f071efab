// Gates given by a fixed matrix or by the matrix of an angle.
#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "support/complex.h"
#include "support/gate_matrices.h"

namespace Nimbrel {
namespace {

constexpr GateMatrix general(const MatrixEntries& entries) {
    return {.kind = GateKind::complex_matrix, .entries = entries};
}

}  // namespace

void QPU::rootx(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                long cond_flag) {
    root_gate(general(rootx_matrix), target_mask, cond_mask, cond_neg_mask, cond_flag);
}

void QPU::rootx_inv(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                    long cond_flag) {
    root_gate(general(rootx_inv_matrix), target_mask, cond_mask, cond_neg_mask, cond_flag);
}

void QPU::rooty(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                long cond_flag) {
    root_gate(general(rooty_matrix), target_mask, cond_mask, cond_neg_mask, cond_flag);
}

void QPU::rooty_inv(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                    long cond_flag) {
    root_gate(general(rooty_inv_matrix), target_mask, cond_mask, cond_neg_mask, cond_flag);
}

void QPU::y(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
            long cond_flag) {
    if (!acts(cond_flag)) return;
    apply_matrix({.kind = GateKind::crossed_matrix, .entries = y_matrix}, target_mask & qubit_mask,
                 cond_mask, cond_neg_mask);
}

// A rotation by an angle of exactly 0 does nothing: it counts no operation and keeps classical
// qubits.
void QPU::rx(double angle, unsigned long target_mask, unsigned long cond_mask,
             unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag) || angle == 0.0) return;
    apply_matrix({.kind = GateKind::crossed_matrix, .entries = rx_matrix(angles.of_half(angle))},
                 target_mask & qubit_mask, cond_mask, cond_neg_mask);
}

void QPU::ry(double angle, unsigned long target_mask, unsigned long cond_mask,
             unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag) || angle == 0.0) return;
    const auto [s, c] = angles.of_half(angle);
    const double matrix[] = {c, -s, s, c};
    real2x2(matrix, target_mask & qubit_mask, cond_mask, cond_neg_mask, 0);
}

void QPU::rz(double angle, unsigned long target_mask, unsigned long cond_mask,
             unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag) || angle == 0.0) return;
    apply_matrix({.kind = GateKind::diagonal_matrix, .entries = rz_matrix(angles.of_half(angle))},
                 target_mask & qubit_mask, cond_mask, cond_neg_mask);
}

void QPU::rxz(double x_angle, double phase_angle, unsigned long target_mask,
              unsigned long cond_mask, unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag) || (x_angle == 0.0 && phase_angle == 0.0)) return;
    const auto [s, c] = angles.of_half(x_angle);
    const auto [q, p] = angles.of(phase_angle);
    const complex_t matrix[] = {{c, 0.0}, {0.0, -s}, {s * q, -s * p}, {c * p, c * q}};
    complex2x2(matrix, target_mask, cond_mask, cond_neg_mask, 0);
}

void QPU::root_gate(const GateMatrix& matrix, unsigned long target_mask, unsigned long cond_mask,
                    unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    apply_matrix(matrix, target_mask, cond_mask, cond_neg_mask);
    removable_finish();
}

}  // namespace Nimbrel
