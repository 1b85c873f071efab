#!/usr/bin/env bash
# interpreters.sh [PYTHON...]: builds a wheel with each supported CPython that is found here, or with those
# named, and runs on it the tests of the module's boundary under the oldest NumPy that has a wheel for it, and
# all tests but those of frameworks and MPI under the newest. Fails at the end if one failed.
set -euo pipefail

cd "$(dirname "$0")/.."
source tools/numpy_environments.sh

# A `python3.X` on PATH, and those of pyenv. One of each version, the first found.
interpreters() {
  local minor candidate
  for minor in 10 11 12 13 14; do
    for candidate in "${PYENV_ROOT:-$HOME/.pyenv}"/versions/3.$minor.*/bin/python "python3.$minor"; do
      if command -v "$candidate" >/dev/null && "$candidate" -c 'import venv, ensurepip' 2>/dev/null; then
        echo "$candidate"
        break
      fi
    done
  done
}

build_wheel() {
  local python=$1 folder=$2
  rm -rf "$folder/wheel"
  "$python" -m venv "$folder/build"
  # Without precompiled headers a compiler cache serves all sources but the module's own.
  SKBUILD_BUILD_DIR="$folder/skbuild" "$folder/build/bin/pip" wheel -q --disable-pip-version-check --no-deps \
    --config-settings=cmake.define.CMAKE_DISABLE_PRECOMPILE_HEADERS=ON --wheel-dir "$folder/wheel" .
}

failed=()
pythons=("$@")
((${#pythons[@]})) || mapfile -t pythons < <(interpreters)
set -f # the patterns are for pip, not for the shell
for python in "${pythons[@]}"; do
  version=$(python_version "$python")
  folder="$PWD/build/interpreters/$version"
  build_wheel "$python" "$folder" || { failed+=("$version: wheel"); continue; }
  wheel=$(find "$folder/wheel" -name '*.whl')
  read -r oldest _ <<<"$(older_numpys "$version")"
  test_under "$python" "$wheel" "$oldest" "$folder" @tests/python/lists/boundary.txt ||
    failed+=("$version: NumPy $oldest")
  TEST_EXTRA=test test_under "$python" "$wheel" newest "$folder" \
    --ignore tests/python/frameworks --ignore tests/python/scale tests/python ||
    failed+=("$version: newest NumPy")
done

if ((${#failed[@]})); then
  printf 'error: failed: %s\n' "$(IFS=,; echo "${failed[*]}")" >&2
  exit 1
fi
