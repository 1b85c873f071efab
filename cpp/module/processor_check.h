/// The question whether this processor can run the engine. For the entry function, before all else.
#pragma once

namespace Nimbrel::Binding {

/// Whether the processor has, and the operating system supports, the instructions that the engine
/// is compiled to. Where not, sets ImportError with the names of those that are missing.
bool require_processor();

}  // namespace Nimbrel::Binding
