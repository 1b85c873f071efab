#include "support/processor_pause.h"

namespace Nimbrel {

// `yield` does nothing on most of these processors. `isb` waits for the pipeline to drain, which
// takes about as long as the pause of x86-64.
void pause_processor() { asm volatile("isb" ::: "memory"); }

}  // namespace Nimbrel
