/// The Pauli-product kernels: rotation, measurement and its probability, on a block or on a pair of
/// blocks. Functions of their arguments alone; the caller owns the amplitudes for the call.
#pragma once

#include "dense/blocks/kernels/slot_condition.h"
#include "support/complex.h"

namespace Nimbrel {

/// A product and the slots it works on. P takes the amplitude of slot i ^ x_mask to slot i, with a
/// sign from the parity of the term index under `z_mask` and one factor of i for each Y.
struct PauliProduct {
    complex_t* here;             ///< `n` slots
    complex_t* there = nullptr;  ///< the slots of the other block; null when P stays in one block
    unsigned long n;
    unsigned long num_block_qubits;
    unsigned long here_number;       ///< block number of `here`
    unsigned long there_number = 0;  ///< block number of `there`
    unsigned long x_mask;
    unsigned long z_mask;  ///< over the block number too
    unsigned y_factors;    ///< qubits of the whole register in both masks
};

/// cos(t) - i sin(t) P. The controls are tested on slots of `here`.
void rotate_product(const PauliProduct& product, SlotCondition controls, double sine,
                    double cosine);

/// 1 + P, or 1 - P for a measured result other than 0. Not normalised.
void project_product(const PauliProduct& product, unsigned long measured);

/// This piece's share of the probability of outcome +1.
double product_probability(const PauliProduct& product);

/// The mask of the slot bits of a block, made in 32 bits and sign-extended: the number of qubits
/// counts modulo 32.
unsigned long product_slot_mask(unsigned long num_block_qubits);

/// Exchanges slot i with slot i ^ flips, of `there` or when that is null of `here`, for all slots i
/// of `here` that have all bits of `controls` set. Requires: `flips` is not 0.
void exchange_slots(complex_t* here, complex_t* there, unsigned long n, unsigned long flips,
                    unsigned long controls);

}  // namespace Nimbrel
