#!/usr/bin/env bash
# Makes sure that the fuzz targets can be built: installs the distribution's Clang with its sanitizers
# and coverage tools when that is possible without a question, else says in one line how to.
set -euo pipefail

has_clang() {
  "${CLANGXX:-clang++}" -x c++ -std=c++20 - -fsanitize=fuzzer,address,undefined -o /dev/null \
    2>/dev/null <<'SOURCE' && command -v llvm-cov-14 llvm-profdata-14 >/dev/null
#include <cstddef>
#include <cstdint>
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t*, std::size_t) { return 0; }
SOURCE
}

has_clang && exit 0

echo "Clang with libFuzzer not found; trying the distribution's packages"
"$(dirname "$0")/install_packages.sh" clang-14 clang libclang-rt-14-dev llvm-14

if ! has_clang; then
  echo "error: Clang with libFuzzer is missing: install it (Debian: sudo apt-get install clang" \
    "libclang-rt-14-dev llvm-14) or set CLANGXX to where it is" >&2
  exit 1
fi
