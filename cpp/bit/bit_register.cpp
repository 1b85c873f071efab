#include <algorithm>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "bit/bit_filter.h"
#include "filter/mask_pairs.h"
#include "filter/shared_records.h"
#include "support/available_memory.h"

namespace Nimbrel {
namespace {

/// Peak of additional memory while several vectors grow one after the other. A vector frees its old
/// memory only after it has the new. Saturates at the largest number.
class PeakGrowth {
  public:
    template <typename T>
    void add(const std::vector<T>& grown, unsigned long size) {
        if (size <= grown.capacity()) return;
        constexpr unsigned long most = std::numeric_limits<unsigned long>::max();
        const bool fits = size <= most / 4 / sizeof(T);
        peak_ = fits ? std::max(peak_, added_ + size * sizeof(T)) : most;
        if (fits) added_ += (size - grown.capacity()) * sizeof(T);
    }

    unsigned long bytes() const { return peak_; }

  private:
    unsigned long added_ = 0;
    unsigned long peak_ = 0;
};

[[noreturn]] void refuse_register(unsigned long qubits, const std::string& reason) {
    throw std::runtime_error("Error: qc.reset() could not allocate a register of " +
                             std::to_string(qubits) + " qubits." + reason);
}

}  // namespace

void OpFilter_BitQPUSim::require_memory(unsigned long qubits) const {
    PeakGrowth growth;
    growth.add(qpu_base().qint_table, qubits);
    growth.add(bit_values, words_for_bits(qubits));
    growth.add(settled_bits, words_for_bits(qubits));
    if (const auto shortage = find_shortage(growth.bytes())) {
        refuse_register(qubits, shortage->text());
    }
}

// Allocates all memory before anything changes, so a register that is too large leaves the old one
// unchanged.
void OpFilter_BitQPUSim::reset(unsigned long qubits) {
    require_memory(qubits);
    const unsigned long words = words_for_bits(qubits);
    try {
        qpu_base().qint_table.reserve(qubits);
        bit_values.reserve(words);
        settled_bits.reserve(words);
    } catch (const std::exception&) {
        refuse_register(qubits, "");
    }
    num_qubits = qubits;
    qpu_base().num_qubits = qubits;
    bit_values.assign(words, 0);
    settled_bits.assign(words, 0);
    qpu_base().clear_all_qints();
}

void OpFilter_BitQPUSim::require_register() const {
    if (bit_values.empty()) refuse_before_reset();
}

void OpFilter_BitQPUSim::require_inside(const std::vector<unsigned long>& list) const {
    for (std::size_t i = 1; i < list.size(); i += 2) {
        if (word_of(list[i]) < bit_values.size()) continue;
        throw std::runtime_error("Error: qubit offset " + std::to_string(list[i]) +
                                 " lies outside the register of " + std::to_string(num_qubits) +
                                 " qubits.");
    }
}

void OpFilter_BitQPUSim::build_lists(const QPUOp& op) {
    build_lists(op.target_mask, op.target_offset, op.cond_mask, op.cond_neg_mask, op.cond_offset);
}

void OpFilter_BitQPUSim::build_lists(unsigned long target_mask, unsigned long target_offset,
                                     unsigned long cond_mask, unsigned long cond_neg_mask,
                                     unsigned long cond_offset) {
    target_list.clear();
    cond_list.clear();
    cond_neg_list.clear();
    if (target_mask != 0) append_pair(target_list, target_mask, target_offset);
    if (cond_mask != 0) {
        append_pair(cond_list, cond_mask, cond_offset);
        append_pair(cond_neg_list, cond_neg_mask, cond_offset);
    }
    append_extensions();
}

void OpFilter_BitQPUSim::append_extensions() {
    if (!qpu_base().has_extensions()) return;
    append_pairs(target_list, qpu_base().target_extensions);
    append_pairs(cond_list, qpu_base().cond_extensions);
    append_pairs(cond_neg_list, qpu_base().cond_neg_extensions);
    qpu_base().clear_extensions();
}

}  // namespace Nimbrel
