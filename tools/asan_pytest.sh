#!/usr/bin/env bash
# asan_pytest.sh PYTHON MODULE_DIR: runs Python tests on a module built with the address sanitizer.
# The interpreter is built without it, so the sanitizer's runtime must be loaded first. The runtime
# looks up functions of the C++ library when it starts, so that library is loaded with it.
set -euo pipefail

python=$1
module_dir=$(cd "$2" && pwd)
library() { "${CXX:-g++}" -print-file-name="$1"; }
preload="$(library libasan.so) $(library libstdc++.so)"
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
# These test Python code. Each of their calls of the engine is also made by a test that runs here.
ignored=(--ignore=tests/python/documents --ignore=tests/python/examples --ignore=tests/python/service)
# These replace the allocator, as the sanitizer does, or measure memory. The native ones of the same faults run.
ignored+=(--ignore=tests/python/faults)
# The frameworks' own compiled modules would run under the sanitizer too.
ignored+=(--ignore=tests/python/frameworks)
# With Python's streams captured only, a report of the sanitizer appears on the terminal.
"$python" -m pytest -q --capture=sys --numprocesses "${CTEST_PARALLEL_LEVEL:-2}" --dist loadfile \
  "${ignored[@]}"
