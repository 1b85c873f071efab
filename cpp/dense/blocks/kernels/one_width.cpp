// Stands in for the wide kernels and the choice between widths where vectors have one width. The
// narrow kernels then take every gate, so nothing calls the wide ones.
#include <cstdlib>

#include "dense/blocks/kernels/register_gate.h"
#include "dense/blocks/kernels/wide_gates.h"
#include "dense/blocks/kernels/width.h"

namespace Nimbrel {

bool wide_kernels_in_use = false;

void use_wide_kernels(bool /*wide*/) {}

bool apply_wide(const SlotGate& /*gate*/, complex_t* /*lower*/, complex_t* /*upper*/,
                unsigned long /*n*/) {
    std::abort();
}

void rotate_product_wide(const WideProduct& /*product*/) { std::abort(); }

RegisterSteps register_steps(GateKind /*kind*/, unsigned /*bit*/) { std::abort(); }

RegisterSteps register_exchange(unsigned /*bit*/, unsigned /*pairs*/) { std::abort(); }

void run_in_registers(const RegisterGroups& /*groups*/, const RegisterGate** /*gates*/,
                      unsigned long /*num_gates*/) {
    std::abort();
}

}  // namespace Nimbrel
