#!/usr/bin/env bash
# merge_corpora.sh PYTHON BUILD [TARGET...]: minimises the corpora that fuzz.sh has grown in BUILD and
# packs them into tests/fuzz/corpus.
set -euo pipefail

python=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
build=$(cd "$2" && pwd)
cd "$(dirname "$0")/.."
targets=("${@:3}")
((${#targets[@]})) || targets=(dense sparse bit clifford export replies boundary qasm files)
# To merge, libFuzzer starts the program again by its name.
PATH=$(dirname "$python"):$PATH
export ASAN_OPTIONS=detect_leaks=0:quarantine_size_mb=1:allocator_may_return_null=1

for target in "${targets[@]}"; do
  command=("$build/tests/fuzz/fuzz_$target")
  case $target in qasm | files) command=("$python" "tests/fuzz/python/fuzz_$target.py") ;; esac
  # A target that was not fuzzed keeps its packed inputs.
  "$python" tools/fuzz_corpus.py unpack "$target" "$build/corpus/$target"
  # By edges alone: an input for each number of times that a loop runs is of no use to a replay.
  rm -rf "$build/merged/$target"
  mkdir -p "$build/merged/$target"
  "${command[@]}" -merge=1 -use_counters=0 -max_len=400 "$build/merged/$target" \
    "$build/corpus/$target" >"$build/merge-$target.log" 2>&1
  # An empty corpus means that no input ran.
  [[ -n $(ls "$build/merged/$target") ]] || { tail -3 "$build/merge-$target.log"; exit 1; }
  "$python" tools/fuzz_corpus.py pack "$target" "$build/merged/$target"
  echo "$target: $(find "$build/merged/$target" -type f | wc -l) inputs"
done
