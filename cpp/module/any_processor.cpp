// Stands in for `processor_check.cpp` in a build that needs no instruction set beyond the family's.
#include "module/processor_check.h"

namespace Nimbrel::Binding {

bool require_processor() { return true; }

}  // namespace Nimbrel::Binding
