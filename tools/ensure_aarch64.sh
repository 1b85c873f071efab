#!/usr/bin/env bash
# Makes sure that the native tests can be built and run for AArch64: installs the distribution's cross
# compiler, emulator and GoogleTest's sources when that is possible without a question, else says how.
set -euo pipefail

packages=(g++-aarch64-linux-gnu qemu-user googletest)

has_all() {
  command -v aarch64-linux-gnu-g++ >/dev/null && command -v qemu-aarch64 >/dev/null &&
    [[ -f /usr/src/googletest/CMakeLists.txt ]]
}

as_root() {
  if [[ "$(id -u)" == 0 ]]; then
    "$@"
  else
    sudo --non-interactive "$@"
  fi
}

has_all && exit 0

echo "Tools for AArch64 not found; trying the distribution's packages ${packages[*]}"
if command -v apt-get >/dev/null && as_root true 2>/dev/null; then
  export DEBIAN_FRONTEND=noninteractive
  # Should either fail, the message below says what to do.
  as_root apt-get update -qq || true
  as_root apt-get install -qq --no-install-recommends "${packages[@]}" >/dev/null </dev/null || true
fi

if ! has_all; then
  echo "error: tools for AArch64 are missing: install them (Debian, Ubuntu:" \
    "sudo apt-get install ${packages[*]})" >&2
  exit 1
fi
