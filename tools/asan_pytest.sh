#!/usr/bin/env bash
# asan_pytest.sh PYTHON MODULE_DIR [TEST...]: runs Python tests on a module built with the address
# sanitizer, by default all that gain from it.
# The interpreter is built without it, so the sanitizer's runtime must be loaded first. The runtime
# looks up functions of the C++ library when it starts, so that library is loaded with it.
set -euo pipefail

python=$1
module_dir=$(cd "$2" && pwd)
shift 2
# The runtime must be that of the compiler which built the module.
compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "$module_dir/../CMakeCache.txt")
library() { "$compiler" -print-file-name="$1"; }
case $compiler in
  *clang*) runtime=libclang_rt.asan-$(uname -m).so ;;
  *) runtime=libasan.so ;;
esac
preload="$(library "$runtime") $(library libstdc++.so)"
cd "$(dirname "$0")/.."

export PYTHONPATH="$module_dir"
# The interpreter does not free all its memory, so leaks are not reported. Its allocator would hide
# overruns of small objects. An allocation that fails must return null, as without the sanitizer.
export ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1
export PYTHONMALLOC=malloc
export LD_PRELOAD="$preload"

loaded=$("$python" -c 'import _lib_nb_sim; print(_lib_nb_sim.__file__)')
if [[ $loaded != "$module_dir"/* ]]; then
  echo "error: the tests would run on $loaded and not on the sanitized module" >&2
  exit 1
fi
if (($#)); then
  selected=("$@")
else
  # Left out are tests of Python code, each of whose calls of the engine is also made by a test that runs;
  # those that replace the allocator, as the sanitizer does; those whose packages have compiled modules.
  selected=()
  for folder in documents examples service faults frameworks scale; do
    selected+=("--ignore=tests/python/$folder")
  done
fi
# With Python's streams captured only, a report of the sanitizer appears on the terminal.
"$python" -m pytest -q --capture=sys --numprocesses "${CTEST_PARALLEL_LEVEL:-2}" --dist loadfile \
  "${selected[@]}"
