#!/usr/bin/env bash
# numpy_matrix.sh WHEEL: runs the tests that depend on NumPy on one built wheel, under each older
# supported NumPy, each in its own environment under build/numpy-<version>. 'make test-python' runs all
# tests under the newest NumPy.
set -euo pipefail

wheel=$1
python=${PYTHON:-python3}
jobs=${CTEST_PARALLEL_LEVEL:-2}
cd "$(dirname "$0")/.."

# Tests of the arrays that enter and leave the engine, of how the module finds NumPy, and of all code of
# the companion that calls NumPy.
tests=(
  bit/test_readouts.py
  clifford/test_print.py
  companion/test_builders.py companion/test_clifford.py companion/test_clifford_controls.py
  companion/test_dense.py companion/test_extensions.py companion/test_possible_registers.py
  companion/test_qubits_outside.py companion/test_remote.py companion/test_repeated_programs.py
  companion/test_simulator.py companion/test_sparse.py
  dense/test_array_sizes.py dense/test_biggest.py dense/test_buffer_addresses.py
  dense/test_buffers.py dense/test_gates.py dense/test_transfer.py
  filter/test_events.py filter/test_records.py
  module/test_array_checks.py module/test_bad_input.py module/test_fork_seeds.py
  module/test_numpy_import.py module/test_surface.py
  service/test_session.py
  sparse/test_array_sizes.py sparse/test_transfer.py
)

# NumPy publishes no wheels of its old releases for a newer Python, so the oldest depends on it.
older_numpy_versions() {
  case "$("$python" -c 'import sys; print("%d.%d" % sys.version_info[:2])')" in
    3.10 | 3.11) echo "1.25.* 1.26.*" ;;
    3.12) echo "1.26.*" ;;
    3.13) echo "2.1.*" ;;
  esac
}

run_under() {
  local version=$1 environment
  environment="build/numpy-$(tr -d '*.' <<<"$version")"
  [[ -x $environment/bin/python ]] || "$python" -m venv "$environment"
  "$environment/bin/pip" install -q --disable-pip-version-check --only-binary numpy \
    "numpy==$version" "${wheel}[test-numpy]"
  "$environment/bin/pip" install -q --disable-pip-version-check --force-reinstall --no-deps "$wheel"
  echo "== Tests of arrays under NumPy $("$environment/bin/python" -c 'import numpy; print(numpy.__version__)')"
  "$environment/bin/python" -m pytest -q --numprocesses "$jobs" --dist loadfile \
    "${tests[@]/#/tests/python/}"
}

set -f # the patterns are for pip, not for the shell
for version in $(older_numpy_versions); do
  run_under "$version"
done
