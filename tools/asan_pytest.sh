#!/usr/bin/env bash
# asan_pytest.sh PYTHON MODULE_DIR: the Python tests on a module built with the address sanitizer.
# The interpreter is not built with it, so the sanitizer's runtime must be loaded before everything,
# and with it the C++ library, in which the runtime looks up how to throw when it starts.
set -euo pipefail

python=$1
module_dir=$(cd "$2" && pwd)
library() { "${CXX:-g++}" -print-file-name="$1"; }
preload="$(library libasan.so) $(library libstdc++.so)"
cd "$(dirname "$0")/.."

export PYTHONPATH="$module_dir"
# The interpreter never frees all it has, so a leak is no finding. Its own allocator would hide
# overruns of small objects.
# A state vector that memory cannot hold must come back as a refusal, as it does without the sanitizer.
export ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1
export PYTHONMALLOC=malloc
export LD_PRELOAD="$preload"

loaded=$("$python" -c 'import _lib_nb_sim; print(_lib_nb_sim.__file__)')
if [[ $loaded != "$module_dir"/* ]]; then
  echo "error: the tests would run on $loaded and not on the sanitized module" >&2
  exit 1
fi
# Capturing Python's streams alone leaves the sanitizer's last words on the terminal.
"$python" -m pytest -q --capture=sys --numprocesses "${CTEST_PARALLEL_LEVEL:-2}" --dist loadfile
