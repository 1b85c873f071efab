/// `QPU`, the register object that every filter owns.
#pragma once

#include "filter/qpu_base.h"

namespace Nimbrel {

/// A filter's register. Filters that simulate no amplitudes have one too: read flags, mask
/// extensions and simulator parameters live here.
///
/// Owned by its filter and used only by the thread that runs a dispatcher or a wrapper.
class QPU : public QPU_Base {
  public:
    /// A register without qubits, with the simulator parameters at their defaults.
    QPU(unsigned long qubits, OpFilter* owning_filter);

    /// Flags `first`, `first + 1`, ... as bits 0, 1, ... of the result. Throws for more flags than
    /// the result has bits.
    unsigned long fetch_read_result(long first, unsigned long count) override;

    /// Stores the NAND of two flags under a positive `dest_flag`, their AND under a negative one.
    void flag_nand(long flag_a, long flag_b, long cond_flag, long dest_flag);

  private:
    /// A flag as an operand of `flag_nand`, where -1 is the inverse of the constant 1.
    bool flag_operand(long flag) const;
};

}  // namespace Nimbrel
