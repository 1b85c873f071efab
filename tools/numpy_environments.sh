# Sourced by numpy_matrix.sh and interpreters.sh: which older NumPy a CPython is tested with, and runs of
# tests in an environment with one of them.

python_version() {
  "$1" -c 'import sys; print("%d.%d" % sys.version_info[:2])'
}

# older_numpys PYTHON_VERSION: patterns for pip, oldest first. NumPy publishes no wheels of its old releases
# for a newer Python.
older_numpys() {
  case $1 in
    3.10 | 3.11) echo "1.25.* 1.26.*" ;;
    3.12) echo "1.26.*" ;;
    3.13) echo "2.1.*" ;;
    3.14) echo "2.3.*" ;;
  esac
}

# test_under PYTHON WHEEL NUMPY FOLDER PYTEST_ARGUMENT...: makes an environment in FOLDER with the wheel and
# that NumPy, a pattern or "newest", and runs tests in it. TEST_EXTRA names the extra that they need.
test_under() {
  local python=$1 wheel=$2 numpy=$3 environment
  environment="$4/numpy-$(tr -d '*.' <<<"$numpy")"
  shift 4
  [[ -x $environment/bin/python ]] || "$python" -m venv "$environment" || return
  local wanted=numpy
  [[ $numpy == newest ]] || wanted="numpy==$numpy"
  "$environment/bin/pip" install -q --disable-pip-version-check --upgrade --only-binary numpy "$wanted" \
    "${wheel}[${TEST_EXTRA:-test-numpy}]" || return
  "$environment/bin/pip" install -q --disable-pip-version-check --force-reinstall --no-deps "$wheel" || return
  "$environment/bin/python" -c 'import sys, numpy
print("== CPython %d.%d.%d, NumPy" % sys.version_info[:3], numpy.__version__)'
  "$environment/bin/python" -m pytest -q --numprocesses "${CTEST_PARALLEL_LEVEL:-2}" --dist loadfile "$@"
}
