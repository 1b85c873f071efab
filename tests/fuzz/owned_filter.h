/// A filter of a fuzzed run.
#pragma once

#include "core_register/core_register.h"
#include "filter/op_filter.h"
#include "scenario.h"
#include "support/random.h"

namespace Nimbrel::Fuzzing {

/// A new filter with few read flags and the seed that all runs have.
template <typename Filter>
class OwnedFilter {
  public:
    OwnedFilter() {
        filter_.qpu->read_flag_capacity = few_flags;
        set_random_seed(20261122);
    }
    ~OwnedFilter() { OpFilter::filter_registry.erase(filter_.handle); }
    OwnedFilter(const OwnedFilter&) = delete;
    OwnedFilter& operator=(const OwnedFilter&) = delete;

    Filter* operator->() { return &filter_; }
    Filter& operator*() { return filter_; }

  private:
    Filter filter_;
};

/// A reset record.
inline QPUOp reset_record(unsigned long qubits) {
    QPUOp op{};
    op.opcode = OP_RESET;
    op.target_mask = qubits;
    return op;
}

}  // namespace Nimbrel::Fuzzing
