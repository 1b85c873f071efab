#include "filter/state/qpu_base.h"

namespace Nimbrel {

QPU_Base::QPU_Base(unsigned long qubits, OpFilter* owning_filter)
    : num_qubits(qubits), owner(owning_filter), qint_table(qubits, 0) {}

QPU_Base::~QPU_Base() = default;

unsigned long QPU_Base::fetch_read_result(long /*first*/, unsigned long /*count*/) { return 0; }

void QPU_Base::extend_masks(unsigned long target_mask, unsigned long target_offset,
                            unsigned long cond_mask, unsigned long cond_neg_mask,
                            unsigned long cond_offset) {
    const std::size_t targets_before = target_extensions.size();
    const std::size_t controls_before = cond_extensions.size();
    try {
        if (target_mask != 0) {
            target_extensions.insert(target_extensions.end(), {target_mask, target_offset});
        }
        if (cond_mask != 0) {
            cond_extensions.insert(cond_extensions.end(), {cond_mask, cond_offset});
            cond_neg_extensions.insert(cond_neg_extensions.end(), {cond_neg_mask, cond_offset});
        }
    } catch (...) {
        // The lists of controls must stay equally long.
        target_extensions.resize(targets_before);
        cond_extensions.resize(controls_before);
        throw;
    }
}

void QPU_Base::clear_extensions() {
    target_extensions.clear();
    cond_extensions.clear();
    cond_neg_extensions.clear();
}

}  // namespace Nimbrel
