#include "support/processor_pause.h"

namespace Nimbrel {

// No instruction is known. The call alone makes the loop read its condition again.
void pause_processor() {}

}  // namespace Nimbrel
