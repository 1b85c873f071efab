/// Calls of a filter's operations with arrays that its rules accept, as the module makes them.
#pragma once

#include <vector>

#include "scenario.h"

namespace Nimbrel::Fuzzing {

/// Amplitudes as programs have them, and some that none has: zeros of both signs, numbers at the
/// ends of their range, not-a-numbers.
std::vector<complex_t> decode_amplitudes(ByteReader& in, unsigned long length);

/// Makes a call and adds what it returns and writes. Throws what the filter throws, and if the
/// array is shorter than the filter needs.
void make_call(const CallArguments& arguments, OpFilter& filter, Observation& seen);

}  // namespace Nimbrel::Fuzzing
