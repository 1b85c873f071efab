/// Several gates on amplitudes that stay in vector registers.
///
/// A gate is loads and stores as much as arithmetic. Eight registers of four amplitudes hold a
/// group of 32 amplitudes, whose slots differ in five bits: the lowest two and three that are
/// chosen. Gates on these five bits act one after the other on a group between one load and one
/// store.
///
///     slot bits of a group:   b4 b3 b2   number of the register
///                             1  0       amplitude in the register
///
/// For `TilePass`, by way of `register_run.h`, and the tests. Any thread.
#pragma once

#include "dense/blocks/kernels/gate_kind.h"
#include "support/complex.h"

namespace Nimbrel {

inline constexpr unsigned group_bits = 5;
inline constexpr unsigned group_lane_bits = 2;
inline constexpr unsigned group_registers = 8;

/// One gate, ready for a group. Plain data.
struct RegisterGate {
    /// Two functions that apply it, see `RegisterSteps`.
    void (*quick_step)() = nullptr;
    void (*tested_step)() = nullptr;
    unsigned long outside_mask = 0;  ///< controls among the slot's bits that a group fixes
    unsigned long outside_pattern = 0;
    /// Bits 2a and 2a + 1 of a byte: whether amplitude a qualifies. A byte for each pair of
    /// registers, x deciding for its pair; or for each register if the gate works inside the
    /// registers.
    unsigned char chosen[group_registers] = {};
    bool chooses_all = false;
    bool keeps_zeros = false;  ///< leaves amplitudes of zero bits as they are
    bool may_fail = false;     ///< the quick step may be wrong where the result has special lanes
    const complex_t* matrix = nullptr;
    alignas(16) double factors[8][2] = {};  ///< the matrix, arranged for loading
};

/// The quick step leaves out the tests for zeros, infinities and not-a-numbers; the tested one has
/// them.
struct RegisterSteps {
    void (*quick)();
    void (*tested)();
};

/// The steps of a gate on bit `bit` of a group, which a gate without a target ignores. Of an
/// exchange for the bits of the lanes alone.
RegisterSteps register_steps(GateKind kind, unsigned bit);

/// The steps of an exchange on a bit above the lanes: of the whole pairs whose bits are set in
/// `pairs`, or by the bytes of `chosen` if there is no step for this set.
RegisterSteps register_exchange(unsigned bit, unsigned pairs);

/// The slots that the groups cover.
struct RegisterGroups {
    complex_t* slots;
    unsigned long n;                                        ///< a power of two, 32 or more
    unsigned long distances[group_bits - group_lane_bits];  ///< slot bits, ascending, from 4 on
    bool skips_zeros;                                       ///< whether all gates keep zeros
};

/// Applies `num_gates` gates to every group, in order. `gates` has a place more, which is used.
/// Requires: a processor with AVX-512.
void run_in_registers(const RegisterGroups& groups, const RegisterGate** gates,
                      unsigned long num_gates);

}  // namespace Nimbrel
