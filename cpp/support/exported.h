/// `NIMBREL_EXPORTED`, for classes that native callers find in the built library.
#pragma once

// The library hides all that has no such mark; `cpp/module/exports.map` lists what has one.
#define NIMBREL_EXPORTED __attribute__((visibility("default")))
