#!/usr/bin/env bash
# Makes sure that CMake's find_package(GTest) will succeed: installs the distribution's package when
# that is possible without a question, else says in one line how to.
set -euo pipefail

has_gtest() {
  # A GoogleTest named to CMake by the user is the user's matter.
  [[ -n "${GTest_ROOT:-}${GTest_DIR:-}" ]] && return 0
  "${CXX:-c++}" -x c++ -std=c++17 - -lgtest_main -lgtest -pthread -o /dev/null 2>/dev/null <<'EOF'
#include <gtest/gtest.h>
TEST(Probe, Links) {}
EOF
}

has_gtest && exit 0

echo "GoogleTest not found; trying the distribution's package libgtest-dev"
"$(dirname "$0")/install_packages.sh" libgtest-dev

if ! has_gtest; then
  echo "error: GoogleTest is missing: install it (Debian, Ubuntu: sudo apt-get install libgtest-dev)" \
    "or set GTest_ROOT to where it is" >&2
  exit 1
fi
