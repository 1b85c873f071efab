// Pauli products in one pass over the amplitudes, for any weight. A product pairs the blocks whose
// numbers differ in its X mask; a product of Z factors alone pairs no blocks.

#include <bit>

#include "core_register/block_walk.h"
#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "support/random.h"

namespace Nimbrel {
namespace {

WaitingGate product_rotation(const QPU& qpu, unsigned long x, unsigned long z, SineCosine angle) {
    WaitingGate gate{.is_product = true,
                     .z_mask = z & qpu.block_slot_mask,
                     .y_factors = static_cast<unsigned>(std::popcount(x & z)),
                     .sine = angle.sine,
                     .cosine = angle.cosine};
    for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
        const auto parity =
            static_cast<unsigned long>(std::popcount(i << qpu.num_block_qubits & z)) & 1;
        gate.odd_slots |= parity << qpu.blocks[i]->store_slot;
    }
    return gate;
}

}  // namespace

void QPU::ppr(double angle, unsigned long x_mask, unsigned long z_mask, unsigned long cond_mask,
              unsigned long cond_neg_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    classical_qubits &= ~(x_mask | z_mask);
    const unsigned long x = x_mask & qubit_mask;
    const unsigned long z = z_mask & qubit_mask;
    if ((x | z) == 0) return;
    // No half angle: the gate form is a rotation by twice the angle.
    const auto [sine, cosine] = angles.of(angle);
    ++op_count;
    // Unlike for a gate, controls outside the register are kept: no block meets them.
    const GateCondition condition(*this, cond_mask, cond_mask & cond_neg_mask);
    run_gate(
        *this, x, condition,
        [&, s = sine, c = cosine] {
            return product_rotation(*this, x, z, {.sine = s, .cosine = c});
        },
        [&, s = sine, c = cosine](CoreBlock& block) { block.op_ppr(x, z, condition.slots, s, c); });
    removable_finish();
}

double QPU::pps(unsigned long x_mask, unsigned long z_mask) {
    verify_allocated();
    block_sums.assign(num_blocks, 0.0);
    const unsigned long x = x_mask & qubit_mask;
    const unsigned long z = z_mask & qubit_mask;
    if ((x | z) == 0) return 0.0;
    ++op_count;
    // The lower block of a pair reports for both.
    run_on_blocks(*this, x, {},
                  [&](CoreBlock& block) { block.op_pps(x, z, &block_sums[block.thread_id]); });
    const double probability = add_block_sums();
    removable_finish();
    return probability;
}

unsigned long QPU::ppm(int sign, unsigned long x_mask, unsigned long z_mask, long cond_flag,
                       long read_flag) {
    if (!acts(cond_flag)) return 0;
    const double plus = pps(x_mask, z_mask);
    prepare_read_flags(read_flag, 1);
    const unsigned long measured = random_zero_to_one() >= plus ? 1 : 0;
    ++op_count;
    // The kernels get the unmasked arguments; only the pairing is limited to the register.
    run_on_blocks(*this, x_mask & qubit_mask, {},
                  [=](CoreBlock& block) { block.op_ppm(x_mask, z_mask, measured); });
    removable_finish();
    normalize();
    finish();

    // The sign inverts the reported outcome, not the projection.
    const unsigned long outcome = sign == -1 ? 1 - measured : measured;
    set_read_flag(read_flag, static_cast<long>(outcome));
    const unsigned long used = x_mask | z_mask;
    if (std::has_single_bit(used)) classical_qubits |= used;
    return outcome;
}

}  // namespace Nimbrel
