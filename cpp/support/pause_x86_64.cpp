#include "support/processor_pause.h"

namespace Nimbrel {

void pause_processor() { __builtin_ia32_pause(); }

}  // namespace Nimbrel
