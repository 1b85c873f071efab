#!/usr/bin/env bash
# interpreters.sh [PYTHON...]: builds a wheel with each supported CPython that is found here, or with those
# named, and runs the tests of the module's boundary on it, under the oldest and the newest NumPy that has a
# wheel for it. Fails at the end if one failed.
set -euo pipefail

jobs=${CTEST_PARALLEL_LEVEL:-2}
cd "$(dirname "$0")/.."
root=build/interpreters

# What crosses between Python and the engine, and how the module is loaded.
tests=(
  bit/test_readouts.py clifford/test_print.py
  dense/test_array_sizes.py dense/test_buffer_addresses.py dense/test_buffers.py dense/test_gates.py
  dense/test_transfer.py
  filter/test_events.py filter/test_records.py
  module
  sparse/test_array_sizes.py sparse/test_transfer.py
)

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

version_of() {
  "$1" -c 'import sys; print("%d.%d" % sys.version_info[:2])'
}

# NumPy publishes no wheels of its old releases for a newer Python.
numpy_versions() {
  case $1 in
    3.10 | 3.11) echo "1.25.* newest" ;;
    3.12) echo "1.26.* newest" ;;
    3.13) echo "2.1.* newest" ;;
    3.14) echo "2.3.* newest" ;;
  esac
}

build_wheel() {
  local python=$1 folder=$2
  rm -rf "$folder/wheel"
  "$python" -m venv "$folder/build"
  # Without precompiled headers a compiler cache serves all sources but the module's own.
  SKBUILD_BUILD_DIR="$folder/skbuild" "$folder/build/bin/pip" wheel -q --disable-pip-version-check --no-deps \
    -C cmake.define.CMAKE_DISABLE_PRECOMPILE_HEADERS=ON --wheel-dir "$folder/wheel" .
}

run_under() {
  local python=$1 folder=$2 numpy=$3 environment
  environment="$folder/numpy-$(tr -d '*.' <<<"$numpy")"
  [[ -x $environment/bin/python ]] || "$python" -m venv "$environment"
  local wanted=numpy
  [[ $numpy == newest ]] || wanted="numpy==$numpy"
  local wheel
  wheel=$(echo "$folder"/wheel/*.whl)
  "$environment/bin/pip" install -q --disable-pip-version-check --upgrade --only-binary numpy "$wanted" \
    "${wheel}[test-numpy]"
  "$environment/bin/pip" install -q --disable-pip-version-check --force-reinstall --no-deps "$wheel"
  "$environment/bin/python" -c 'import sys, numpy
print("== CPython %d.%d.%d, NumPy" % sys.version_info[:3], numpy.__version__)'
  "$environment/bin/python" -m pytest -q --numprocesses "$jobs" --dist loadfile "${tests[@]/#/tests/python/}"
}

failed=()
pythons=("$@")
((${#pythons[@]})) || mapfile -t pythons < <(interpreters)
for python in "${pythons[@]}"; do
  version=$(version_of "$python")
  folder="$PWD/$root/$version"
  build_wheel "$python" "$folder" || { failed+=("$version: wheel"); continue; }
  for numpy in $(set -f; numpy_versions "$version"); do
    run_under "$python" "$folder" "$numpy" || failed+=("$version: NumPy $numpy")
  done
done

if ((${#failed[@]})); then
  printf 'error: failed: %s\n' "$(IFS=,; echo "${failed[*]}")" >&2
  exit 1
fi
