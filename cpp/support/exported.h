/// `NIMBREL_EXPORTED`, the mark of classes that the built library exports for native callers.
#pragma once

// Symbols without the mark are hidden. `cpp/module/exports.map` lists the marked classes.
#define NIMBREL_EXPORTED __attribute__((visibility("default")))
