#include "core_register/core_register.h"
#include "support/complex.h"
#include "support/gate_matrices.h"

namespace Nimbrel {

void QPU::rootx(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                long cond_flag) {
    root_gate(rootx_matrix.data(), target_mask, cond_mask, cond_neg_mask, cond_flag);
}

void QPU::rootx_inv(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                    long cond_flag) {
    root_gate(rootx_inv_matrix.data(), target_mask, cond_mask, cond_neg_mask, cond_flag);
}

void QPU::rooty(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                long cond_flag) {
    root_gate(rooty_matrix.data(), target_mask, cond_mask, cond_neg_mask, cond_flag);
}

void QPU::rooty_inv(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
                    long cond_flag) {
    root_gate(rooty_inv_matrix.data(), target_mask, cond_mask, cond_neg_mask, cond_flag);
}

void QPU::y(unsigned long target_mask, unsigned long cond_mask, unsigned long cond_neg_mask,
            long cond_flag) {
    complex2x2(y_matrix.data(), target_mask & qubit_mask, cond_mask, cond_neg_mask, cond_flag);
}

// A rotation by exactly nothing is no gate: nothing is counted and classical qubits stay so.
void QPU::rx(double angle, unsigned long target_mask, unsigned long cond_mask,
             unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag) || angle == 0.0) return;
    const GateMatrix matrix = rx_matrix(angles.of_half(angle));
    complex2x2(matrix.data(), target_mask & qubit_mask, cond_mask, cond_neg_mask, 0);
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
    const GateMatrix matrix = rz_matrix(angles.of_half(angle));
    complex2x2(matrix.data(), target_mask & qubit_mask, cond_mask, cond_neg_mask, 0);
}

void QPU::rxz(double x_angle, double phase_angle, unsigned long target_mask,
              unsigned long cond_mask, unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag) || (x_angle == 0.0 && phase_angle == 0.0)) return;
    const auto [s, c] = angles.of_half(x_angle);
    const auto [q, p] = angles.of(phase_angle);
    const complex_t matrix[] = {{c, 0.0}, {0.0, -s}, {s * q, -s * p}, {c * p, c * q}};
    complex2x2(matrix, target_mask, cond_mask, cond_neg_mask, 0);
}

void QPU::root_gate(const complex_t* matrix, unsigned long target_mask, unsigned long cond_mask,
                    unsigned long cond_neg_mask, long cond_flag) {
    complex2x2(matrix, target_mask, cond_mask, cond_neg_mask, cond_flag);
    removable_finish();
}

}  // namespace Nimbrel
