// The batch of commuting Pauli products. Each record adds one; the last one runs the batch.

#include <bit>
#include <limits>
#include <stdexcept>
#include <string>

#include "core_register/core_register.h"
#include "support/convert.h"

namespace Nimbrel {
namespace {

// A product's position in its batch is encoded as size * 1000 + position.
constexpr int places_in_a_batch = 1000;

// The number of subsets is a signed 32-bit integer. A batch for which it overflows runs nothing.
constexpr unsigned long most_products = 30;

struct BatchPlace {
    explicit BatchPlace(double code) {
        const long number = truncate_to_i64(code);
        // Out-of-range values become INT_MIN.
        const bool fits =
            number >= std::numeric_limits<int>::min() && number <= std::numeric_limits<int>::max();
        const int place = fits ? static_cast<int>(number) : std::numeric_limits<int>::min();
        size = place / places_in_a_batch;
        position = place % places_in_a_batch;
    }

    /// A size of 0 or less has no last product.
    bool is_last() const { return size > 0 && position == size - 1; }

    int size;
    int position;
};

bool commute(unsigned long x_a, unsigned long z_a, unsigned long x_b, unsigned long z_b) {
    return std::popcount((z_b & x_a) ^ (x_b & z_a)) % 2 == 0;
}

}  // namespace

void QPU::pcp(double angle, unsigned long x_mask, unsigned long z_mask, long cond_flag) {
    if (!acts(cond_flag)) return;
    const BatchPlace place(angle);
    const unsigned long x = x_mask & qubit_mask;
    const unsigned long z = z_mask & qubit_mask;
    classical_qubits &= ~(x_mask | z_mask);
    if ((x | z) == 0) return;

    if (place.position == 0) {
        pcp_x_masks.clear();
        pcp_z_masks.clear();
    }
    pcp_x_masks.push_back(x);
    pcp_z_masks.push_back(z);
    if (!place.is_last()) return;
    const auto size = static_cast<unsigned long>(place.size);
    check_batch(size);
    if (size <= most_products) run_batch(size, cond_flag);
}

// A refused batch is kept. Product 0 of the next batch clears it.
void QPU::check_batch(unsigned long size) const {
    if (pcp_x_masks.size() < size) {
        throw std::runtime_error("Error: qc.pcp() batch of " + std::to_string(size) +
                                 " products has only " + std::to_string(pcp_x_masks.size()) + ".");
    }
    for (unsigned long j = 1; j < size; ++j) {
        for (unsigned long i = 0; i < j; ++i) {
            if (commute(pcp_x_masks[i], pcp_z_masks[i], pcp_x_masks[j], pcp_z_masks[j])) continue;
            throw std::runtime_error("Error: qc.pcp() masks do not commute.");
        }
    }
}

// Runs all subsets but the empty one, from the full one down to single products, with alternating
// sign. A subset is given by the products that it omits.
void QPU::run_batch(unsigned long size, long cond_flag) {
    double theta = 90.0;
    for (unsigned long i = 1; i < size; ++i) theta *= 0.5;

    for (unsigned long left_out = 0; left_out < size; ++left_out) {
        const double signed_theta = left_out % 2 == 0 ? -theta : theta;
        for (unsigned long without = 0; without < 1UL << size; ++without) {
            if (static_cast<unsigned long>(std::popcount(without)) != left_out) continue;
            run_subset(signed_theta, size, without, cond_flag);
        }
    }
}

// Products are merged by OR, which is exact for products on disjoint qubits. The classical
// condition is passed in the place of the negated controls, which has no effect without controls:
// it was tested when the record came.
void QPU::run_subset(double angle, unsigned long size, unsigned long without, long cond_flag) {
    unsigned long x = 0;
    unsigned long z = 0;
    for (unsigned long i = 0; i < size; ++i) {
        if ((without >> i & 1) != 0) continue;
        x |= pcp_x_masks[i];
        z |= pcp_z_masks[i];
    }
    ppr(angle, x, z, 0, static_cast<unsigned long>(cond_flag), 0);
}

}  // namespace Nimbrel
