#!/usr/bin/env bash
# numpy_matrix.sh WHEEL: runs the Python tests on one built wheel under the oldest and the newest
# NumPy that it serves, each in an environment of its own under build/numpy-<version>.
set -euo pipefail

wheel=$1
python=${PYTHON:-python3}
jobs=${CTEST_PARALLEL_LEVEL:-2}
cd "$(dirname "$0")/.."

# NumPy publishes no wheels of its old releases for a newer Python, so the oldest depends on it.
numpy_versions() {
  case "$("$python" -c 'import sys; print("%d.%d" % sys.version_info[:2])')" in
    3.10 | 3.11) echo "1.25.* 1.26.* >=2" ;;
    3.12) echo "1.26.* >=2" ;;
    3.13) echo "2.1.* >=2" ;;
    *) echo ">=2" ;;
  esac
}

# Prints the requirement of pip for a version pattern of the list above.
requirement() {
  [[ $1 == ">="* ]] && echo "numpy$1" || echo "numpy==$1"
}

run_under() {
  local version=$1 environment
  environment="build/numpy-$(tr -d '*.>=' <<<"$version")"
  [[ -x $environment/bin/python ]] || "$python" -m venv "$environment"
  "$environment/bin/pip" install -q --disable-pip-version-check --only-binary numpy \
    --upgrade "$(requirement "$version")" "${wheel}[test]"
  "$environment/bin/pip" install -q --disable-pip-version-check --force-reinstall --no-deps "$wheel"
  echo "== Python tests under NumPy $("$environment/bin/python" -c 'import numpy; print(numpy.__version__)')"
  "$environment/bin/python" -m pytest -q --numprocesses "$jobs" --dist loadfile
}

set -f # the patterns are for pip, not for the shell
for version in $(numpy_versions); do
  run_under "$version"
done
