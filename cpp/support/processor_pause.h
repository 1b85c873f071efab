/// The pause instruction for loops that poll another thread.
#pragma once

namespace Nimbrel {

/// Tells the processor that this is a polling loop: it saves power and gives its pipeline to the
/// other hardware thread.
void pause_processor();

}  // namespace Nimbrel
