#include <stdexcept>

#include "bit/bit_filter.h"
#include "filter/mask_pairs.h"

namespace Nimbrel {
namespace {

/// Position of a qubit in the bit vectors.
struct QubitPlace {
    unsigned long word;
    unsigned long bit;
};

/// The two targets of a swap in the order of the list. Throws for any other number of targets.
struct SwapTargets {
    QubitPlace first{};
    QubitPlace second{};

    explicit SwapTargets(const std::vector<unsigned long>& target_list) {
        int found = 0;
        for_each_pair(target_list, [&](unsigned long mask, unsigned long word) {
            for_each_bit(mask, [&](unsigned long bit) {
                if (++found > 2) {
                    throw std::runtime_error(
                        "qc.swap() has more than two target bits, must have exactly two.");
                }
                (found == 1 ? first : second) = {word, bit};
            });
        });
        if (found < 2) {
            throw std::runtime_error(
                "qc.swap() has less than two target bits, must have exactly two.");
        }
    }
};

}  // namespace

bool OpFilter_BitQPUSim::prepare_gate(const QPUOp& op) {
    require_register();
    if (!qpu_base().flag_condition(op.cond_flag)) return false;
    build_lists(op);
    require_inside(target_list);
    require_inside(cond_list);
    return controls_hold();
}

bool OpFilter_BitQPUSim::controls_hold() const {
    for (std::size_t i = 0; i < cond_list.size(); i += 2) {
        const unsigned long controls = cond_list[i];
        const unsigned long needed = controls ^ cond_neg_list[i];
        if ((controls & bit_values[word_of(cond_list[i + 1])]) != needed) return false;
    }
    return true;
}

// An elbow computes or uncomputes the AND of its controls. On classical bits both are a controlled
// X.
void OpFilter_BitQPUSim::flip(const QPUOp& op) {
    if (!prepare_gate(op)) return;
    for_each_pair(target_list, [this](unsigned long mask, unsigned long word) {
        bit_values[word] ^= mask;
        settled_bits[word] &= ~mask;
    });
}

void OpFilter_BitQPUSim::swap(const QPUOp& op) {
    if (!prepare_gate(op)) return;
    const auto [first, second] = SwapTargets(target_list);
    const bool first_value = (bit_values[first.word] & first.bit) != 0;
    const bool second_value = (bit_values[second.word] & second.bit) != 0;
    if (first_value != second_value) {
        bit_values[first.word] ^= first.bit;
        bit_values[second.word] ^= second.bit;
    }
    settled_bits[first.word] &= ~first.bit;
    settled_bits[second.word] &= ~second.bit;
}

}  // namespace Nimbrel
