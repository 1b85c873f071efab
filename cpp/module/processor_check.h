/// The test whether this processor can run the engine. The entry function calls it first.
#pragma once

namespace Nimbrel::Binding {

/// Whether the processor has, and the operating system supports, the instructions that the engine
/// is compiled to. If not, sets ImportError with the names of the missing instruction sets.
bool require_processor();

}  // namespace Nimbrel::Binding
