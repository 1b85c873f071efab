/// Runs a program through the engine's public operations. One thread.
#pragma once

#include <memory>

#include "filter/op_filter.h"
#include "processors/program.h"

namespace Nimbrel::Testing {

struct DeleteFilter {
    void operator()(OpFilter* filter) const { OpFilter::delete_filter(filter->handle); }
};
using FilterPointer = std::unique_ptr<OpFilter, DeleteFilter>;

/// A filter after all records of the program. Throws where a record fails.
FilterPointer run_program(const Program& program);

/// Amplitudes of a dense register.
std::vector<complex_t> pulled_amplitudes(OpFilter& filter, unsigned long qubits);

/// A hash of all that the program's results show: amplitudes, terms in their order, texts, read
/// flags, probabilities and texts of errors.
unsigned long fingerprint_of_results(const Program& program);

}  // namespace Nimbrel::Testing
