#include <algorithm>
#include <bit>
#include <limits>

#include "bit/bit_filter.h"
#include "filter/mask_pairs.h"

namespace Nimbrel {
namespace {

/// The value words of a write for the span of words that its targets lie in. Limited to that span,
/// so that the cost of a write does not grow with the register.
class ValueWords {
  public:
    ValueWords(const std::vector<unsigned long>& target_list,
               const std::vector<unsigned long>& value_list) {
        unsigned long last_word = 0;
        for_each_pair(target_list, [&](unsigned long, unsigned long word) {
            first_word_ = std::min(first_word_, word);
            last_word = std::max(last_word, word);
        });
        if (target_list.empty()) return;
        words_.resize(last_word - first_word_ + 1, 0);
        // A later value for a word replaces an earlier one.
        for_each_pair(value_list, [&](unsigned long value, unsigned long word) {
            if (word >= first_word_ && word <= last_word) words_[word - first_word_] = value;
        });
    }

    unsigned long operator[](unsigned long word) const { return words_[word - first_word_]; }

  private:
    unsigned long first_word_ = std::numeric_limits<unsigned long>::max();
    std::vector<unsigned long> words_;
};

}  // namespace

void OpFilter_BitQPUSim::read(const QPUOp& op) {
    require_register();
    if (!qpu_base().flag_condition(op.cond_flag)) return;
    build_lists(op);
    require_inside(target_list);
    prepare_flags(op.read_flag);
    publish_targets(op.read_flag);
    for_each_pair(target_list,
                  [this](unsigned long mask, unsigned long word) { settled_bits[word] |= mask; });
}

// Bit 4 requests the check. It runs only while qubit debugging is on.
void OpFilter_BitQPUSim::free_qubits(const QPUOp& op) {
    constexpr unsigned long check_requested = 0x10;
    const bool assert_zero = qpu_base().debug_qubits && (op.cond_mask & check_requested) != 0;
    write(0, op.target_mask, op.cond_flag, 0, op.target_offset, op.cond_offset, assert_zero,
          static_cast<unsigned long>(op.read_flag), "free_nonzero_qubits");
}

void OpFilter_BitQPUSim::write(unsigned long value, unsigned long target_mask, long cond_flag,
                               long read_flag, unsigned long target_offset,
                               unsigned long cond_offset, bool assert_zero,
                               unsigned long event_word, const char* label) {
    require_register();
    if (!qpu_base().flag_condition(cond_flag)) return;
    // The value is in the field that holds the controls of a gate.
    build_lists(target_mask, target_offset, value, 0, cond_offset);
    require_inside(target_list);
    require_inside(cond_list);

    const ValueWords values(target_list, cond_list);
    if (read_flag != 0) prepare_flags(read_flag);
    for_each_pair(target_list, [&](unsigned long mask, unsigned long word) {
        if (assert_zero) report_leaked_ones(mask, word, event_word, label);
        bit_values[word] = (bit_values[word] & ~mask) | (values[word] & mask);
        settled_bits[word] |= mask;
    });
    if (read_flag != 0) publish_targets(read_flag);
}

// The program knows a 1 that a read or write has set. Only a 1 from a gate is a leak.
void OpFilter_BitQPUSim::report_leaked_ones(unsigned long mask, unsigned long word,
                                            unsigned long event_word, const char* label) {
    if ((mask & bit_values[word] & ~settled_bits[word]) == 0) return;
    queue_event(label, "Error: assert zero check failed.", static_cast<unsigned int>(event_word),
                handle);
}

void OpFilter_BitQPUSim::prepare_flags(long read_flag) {
    // Most programs use few flags, and then the targets need not be counted.
    if (qpu_base().has_memory_for_flags(read_flag, bits_per_word * target_list.size())) return;
    unsigned long count = 0;
    for_each_pair(target_list, [&](unsigned long mask, unsigned long /*word*/) {
        count += static_cast<unsigned long>(std::popcount(mask));
    });
    qpu_base().prepare_read_flags(read_flag, count);
}

// Every qubit takes a flag number, stored or not, so a negative start counts towards zero.
void OpFilter_BitQPUSim::publish_targets(long read_flag) {
    auto flag = static_cast<unsigned long>(read_flag);
    for_each_pair(target_list, [&](unsigned long mask, unsigned long word) {
        const unsigned long values = bit_values[word];
        for_each_bit(mask, [&](unsigned long bit) {
            qpu_base().set_read_flag(static_cast<long>(flag), (values & bit) != 0 ? 1 : 0);
            ++flag;
        });
    });
}

}  // namespace Nimbrel
