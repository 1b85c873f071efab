#!/usr/bin/env bash
# numpy_matrix.sh WHEEL: runs the tests that depend on NumPy on one built wheel, under each older
# supported NumPy, each in its own environment under build/numpy-<version>. 'make test-python' runs all
# tests under the newest NumPy.
set -euo pipefail

wheel=$1
python=${PYTHON:-python3}
cd "$(dirname "$0")/.."
source tools/numpy_environments.sh

# Tests of the arrays that enter and leave the engine, of how the module finds NumPy, and of all code of
# the companion that calls NumPy.
tests=@tests/python/lists/numpy.txt

set -f # the patterns are for pip, not for the shell
for version in $(older_numpys "$(python_version "$python")"); do
  test_under "$python" "$wheel" "$version" build "$tests"
done
