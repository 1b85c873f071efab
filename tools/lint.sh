#!/usr/bin/env bash
# lint.sh PYTHON [short]: every check that needs no test run, with the tools of that Python's environment.
# Runs them all at once, since most use one processor, and fails at the end if one did, so that one run
# shows all there is to mend. The short form leaves out Clang's static analyzer, which takes a third of
# the time.
set -euo pipefail

tidy_options=()
[[ ${2:-} != short ]] || tidy_options=(--checks=-clang-analyzer-*)

tools=$(cd "$(dirname "$1")" && pwd)
cd "$(dirname "$0")/.."
export PATH="$tools:$PATH"

jobs=${CMAKE_BUILD_PARALLEL_LEVEL:-2}
logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
names=()
pids=()

# check NAME COMMAND...: starts a check. `finish` prints what it wrote.
check() {
  names+=("$1")
  "${@:2}" >"$logs/${#pids[@]}" 2>&1 &
  pids+=($!)
}

finish() {
  local i failed=()
  for i in "${!pids[@]}"; do
    wait "${pids[i]}" || failed+=("${names[i]}")
    echo "== ${names[i]}"
    cat "$logs/$i"
  done
  ((${#failed[@]} == 0)) && return
  printf 'error: failed: %s\n' "$(IFS=,; echo "${failed[*]}")" >&2
  return 1
}

cpp_files() {
  find cpp tests/native tests/fuzz -name '*.cpp' -o -name '*.h' | sort
}

# The engine's sources in the compile database, each file once. Native tests are left to the compiler's
# warnings and the sanitizers: three quarters of the time would be theirs.
database_files() {
  python - <<'EOF'
import json
from pathlib import Path

entries = json.loads(Path("build/dev/compile_commands.json").read_text(encoding="utf-8"))
files = {entry["file"] for entry in entries}
print("\n".join(sorted(file for file in files if Path(file).is_relative_to(Path.cwd() / "cpp"))))
EOF
}

layout_of_cpp() {
  cpp_files | xargs clang-format --dry-run -Werror
}

# A GCC command line may hold warning switches that clang does not know; they are no finding.
bugs_in_cpp() {
  database_files | xargs --max-procs="$jobs" --max-args=1 \
    clang-tidy -p build/dev --quiet "${tidy_options[@]}" --extra-arg=-Wno-unknown-warning-option
}

# One after the other, because they share a cache. Bodies of tests are checked like all else; what a test
# returns and takes is pytest's matter. Folders are packages, since files of different areas may have
# the same name.
types_by_mypy() {
  local status=0
  mypy python/nimbrel examples bench || status=1
  mypy --explicit-package-bases --allow-untyped-defs --allow-incomplete-defs \
    --allow-untyped-calls --allow-untyped-decorators tests/python || status=1
  python -m mypy.stubtest _lib_nb_sim || status=1
  return $status
}

check "include graph" python tools/include_graph.py
check "clang-format" layout_of_cpp
check "dependencies" python tools/dependency_table.py
check "hosted checks" check-jsonschema --quiet --builtin-schema vendor.github-workflows \
  .github/workflows/ci.yml
check "ruff check" ruff check --quiet .
check "ruff format" ruff format --check --quiet .
check "basedpyright" basedpyright
check "mypy" types_by_mypy
check "clang-tidy" bugs_in_cpp
finish
