// The partial transfers: read or replace the part of the state that belongs to some of the qubits.

#include <bit>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "core_register/core_register.h"
#include "dense/blocks/core_block.h"
#include "support/amplitudes.h"
#include "support/array_elements.h"
#include "support/bits.h"

namespace Nimbrel {
namespace {

/// Access to the amplitudes of an idle register by term index, without a block operation for each.
class IdleTerms {
  public:
    explicit IdleTerms(QPU& qpu) : qpu_(qpu) {
        qpu.finish();
        // Locking a block updates its pointer to its amplitudes. Without it, a block that was
        // exchanged since its last lock would point to its partner's.
        for (unsigned long i = 0; i < qpu.num_blocks; ++i) {
            qpu.blocks[i]->lock(true, nullptr);
            qpu.blocks[i]->unlock(false, nullptr);
        }
    }

    complex_t read(unsigned long index) const {
        const CoreBlock& block = block_of(index);
        if (block.all_zero) return {0.0, 0.0};
        return block.block_data[index & qpu_.block_slot_mask];
    }

    void write(unsigned long index, const complex_t& value) {
        CoreBlock& block = block_of(index);
        block.block_data[index & qpu_.block_slot_mask] = value;
        block.all_zero = false;
    }

  private:
    CoreBlock& block_of(unsigned long index) const {
        return *qpu_.blocks[index >> qpu_.num_block_qubits];
    }

    QPU& qpu_;
};

double probability_of(const complex_t& amplitude) {
    return amplitude.re * amplitude.re + amplitude.im * amplitude.im;
}

/// The terms of one state of the other qubits, in the order of the masked qubits' values.
struct Slice {
    std::vector<complex_t> terms;
    double total = -1.0;
    unsigned long nonzero = 0;

    bool outweighs(const Slice& other) const {
        return total > other.total || (total == other.total && nonzero > other.nonzero);
    }

    /// Whether the two slices have different probabilities after normalisation. Phases are not
    /// compared. An all-zero slice differs from none: its shares are NaN.
    bool differs_from(const Slice& other) const {
        constexpr double tolerance = 0.00001;
        for (std::size_t i = 0; i < terms.size(); ++i) {
            const double share = probability_of(terms[i]) / total;
            const double other_share = probability_of(other.terms[i]) / other.total;
            if (std::fabs(share - other_share) > tolerance &&
                std::fabs(share + other_share) > tolerance) {
                return true;
            }
        }
        return false;
    }
};

/// The next larger number with bits in `mask` only, or 0 after the largest.
constexpr unsigned long next_subset(unsigned long subset, unsigned long mask) {
    return (subset - mask) & mask;
}

/// Refills `slice` with the terms at `base` and every combination of the bits of `mask`.
void take_slice(const IdleTerms& terms, unsigned long base, unsigned long mask, Slice& slice) {
    slice.terms.clear();
    slice.terms.reserve(1UL << std::popcount(mask));
    slice.total = 0.0;
    slice.nonzero = 0;
    unsigned long offset = 0;
    do {
        const complex_t amplitude = terms.read(base | offset);
        const double probability = probability_of(amplitude);
        slice.total += probability;
        if (probability > 0.0) ++slice.nonzero;
        slice.terms.push_back(amplitude);
        offset = next_subset(offset, mask);
    } while (offset != 0);
}

/// 2^`exponent` as the 32-bit number that the masked push counts in.
int power_of_two_32(int exponent) {
    return static_cast<int>(1U << (static_cast<unsigned int>(exponent) & 31U));
}

/// Each product and each sum rounded by itself.
complex_t product(const complex_t& x, const complex_t& m) {
    complex_t result{};
    ComplexFactor(m).times(OneAmplitude::load(&x)).store(&result);
    return result;
}

}  // namespace

void QPU::pull_state_specific_sv(std::string& message, complex_t* dest, unsigned long mask,
                                 unsigned long length) {
    verify_allocated();
    finish();
    if (mask == 0) return pull_state_sv(dest, length);

    const IdleTerms terms(*this);
    const unsigned long masked = mask & qubit_mask;
    const unsigned long others = qubit_mask & ~mask;
    bool entangled = false;
    Slice best;
    Slice slice;
    // The last term is a base only if the mask has no qubit of the register. It is omitted then.
    unsigned long base = 0;
    while (base < qubit_mask) {
        take_slice(terms, base, masked, slice);
        if (!entangled && !best.terms.empty()) entangled = slice.differs_from(best);
        if (slice.outweighs(best)) std::swap(slice, best);
        base = next_subset(base, others);
        if (base == 0) break;
    }
    if (!best.terms.empty()) {
        std::memcpy(dest, best.terms.data(), best.terms.size() * sizeof(complex_t));
    }
    if (entangled) message += " entangled with the overall state of the circuit.";
    finish();
}

void QPU::push_state_sv(const complex_t* source, unsigned long mask, unsigned long /*length*/) {
    verify_allocated();
    finish();
    if (mask != 0) return push_factor(source, mask);
    for (unsigned long i = 0; i < num_blocks; ++i, source += terms_per_block) {
        blocks[i]->set_all_values(source);
    }
    finish();
}

// Correct only if the masked qubits are neighbours: the source's index is shifted to the lowest
// masked qubit. For other masks the result is wrong, but every index is inside the register.
void QPU::push_factor(const complex_t* source, unsigned long mask) {
    if ((mask & ~qubit_mask) != 0) {
        throw std::runtime_error("Error: push_state() selector " + std::to_string(mask) +
                                 " names qubits outside the register of " +
                                 std::to_string(num_qubits) + " qubits.");
    }
    write(0, mask, 0, 0);
    IdleTerms terms(*this);
    const unsigned long below = lowest_bit(mask) - 1;
    const unsigned long above = qubit_mask & ~(mask | below);
    const int width = std::popcount(mask);
    const int size = power_of_two_32(width);
    const int others = power_of_two_32(std::popcount(below | above));
    const auto stride = static_cast<unsigned long>(power_of_two_32(std::popcount(below)));
    for (int u = 0; u < others; ++u) {
        const auto other = static_cast<unsigned long>(u);
        const unsigned long base = ((other << width) & above) | (other & below);
        const complex_t amplitude = terms.read(base);
        if (is_raw_zero(amplitude)) continue;
        for (int k = 0; k < size; ++k) {
            const unsigned long index = base | (static_cast<unsigned long>(k) * stride);
            terms.write(index & qubit_mask,
                        product(amplitude, element(source, static_cast<unsigned long>(k))));
        }
    }
    finish();
}

}  // namespace Nimbrel
