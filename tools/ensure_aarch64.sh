#!/usr/bin/env bash
# Makes sure that the native tests can be built and run for AArch64: installs the distribution's cross
# compiler, emulator and GoogleTest's sources when that is possible without a question, else says how.
set -euo pipefail

packages=(g++-aarch64-linux-gnu qemu-user googletest)

has_all() {
  command -v aarch64-linux-gnu-g++ >/dev/null && command -v qemu-aarch64 >/dev/null &&
    [[ -f /usr/src/googletest/CMakeLists.txt ]]
}

has_all && exit 0

echo "Tools for AArch64 not found; trying the distribution's packages ${packages[*]}"
"$(dirname "$0")/install_packages.sh" "${packages[@]}"

if ! has_all; then
  echo "error: tools for AArch64 are missing: install them (Debian, Ubuntu:" \
    "sudo apt-get install ${packages[*]})" >&2
  exit 1
fi
