// Operations that are sequences of other gates: Pauli products and the Fourier transform.

#include <bit>

#include "core_register/block_walk.h"
#include "core_register/core_register.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// The basis change of a Pauli product: `enter` turns each factor into a Z and computes the parity
/// of the product on its highest qubit, `leave` undoes it.
class ParityFrame {
  public:
    ParityFrame(QPU& qpu, unsigned long x, unsigned long z)
        : qpu_(qpu), only_x_(x & ~z), y_(x & z), used_(x | z) {}

    /// Highest qubit of the product; qubit 0 for the empty one.
    unsigned long pivot() const { return used_ == 0 ? 1 : std::bit_floor(used_); }

    void enter() {
        if (y_ != 0) {
            qpu_.phase(-90.0, y_, 0, 0, 0);
            qpu_.hadamard(y_, 0, 0, 0);
        }
        if (only_x_ != 0) qpu_.hadamard(only_x_, 0, 0, 0);
        for_each_bit(below_pivot(), [this](unsigned long bit) { add_parity_of(bit); });
    }

    void leave() {
        for_each_bit_down(below_pivot(), [this](unsigned long bit) { add_parity_of(bit); });
        if (only_x_ != 0) qpu_.hadamard(only_x_, 0, 0, 0);
        if (y_ != 0) {
            qpu_.hadamard(y_, 0, 0, 0);
            qpu_.phase(90.0, y_, 0, 0, 0);
        }
    }

  private:
    unsigned long below_pivot() const { return used_ & (pivot() - 1); }
    void add_parity_of(unsigned long bit) { qpu_.cnot(pivot(), bit, 0, 0); }

    QPU& qpu_;
    const unsigned long only_x_;
    const unsigned long y_;
    const unsigned long used_;
};

}  // namespace

void QPU::ppr_as_gates(double angle, unsigned long x_mask, unsigned long z_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    classical_qubits &= ~(x_mask | z_mask);
    ParityFrame frame(*this, x_mask & qubit_mask, z_mask & qubit_mask);
    frame.enter();
    rz(angle + angle, frame.pivot(), 0, 0, 0);
    frame.leave();
}

unsigned long QPU::ppm_as_gates(int sign, unsigned long x_mask, unsigned long z_mask,
                                long cond_flag) {
    if (!acts(cond_flag)) return 0;
    const unsigned long used = (x_mask | z_mask) & qubit_mask;
    if (used == 0) return 0;
    ParityFrame frame(*this, x_mask & qubit_mask, z_mask & qubit_mask);
    const unsigned long pivot = frame.pivot();
    frame.enter();
    if (sign == -1) op_not(pivot, 0, 0, 0);
    const unsigned long outcome = read(pivot, 0, 0) != 0 ? 1 : 0;
    if (sign == -1) op_not(pivot, 0, 0, 0);
    frame.leave();
    if (std::has_single_bit(used)) classical_qubits |= used;
    return outcome;
}

// `top_down` reverses the order of the qubits; the angles are positive in both orders.
unsigned long QPU::QFT(unsigned long mask, bool measure, bool top_down, bool /*unused*/) {
    verify_allocated();
    unsigned long to_come = mask & qubit_mask;
    classical_qubits &= ~to_come;
    const auto take_next = [top_down](unsigned long& qubits) {
        const unsigned long qubit = top_down ? std::bit_floor(qubits) : lowest_bit(qubits);
        qubits ^= qubit;
        return qubit;
    };

    unsigned long outcome = 0;
    while (to_come != 0) {
        const unsigned long qubit = take_next(to_come);
        hadamard(qubit, 0, 0, 0);
        double angle = 90.0;
        for (unsigned long later = to_come; later != 0; angle *= 0.5) {
            phase(angle, 0, qubit | take_next(later), 0, 0);
        }
        if (measure) outcome |= read(qubit, 0, 0);
    }
    removable_finish();
    return outcome;
}

}  // namespace Nimbrel
