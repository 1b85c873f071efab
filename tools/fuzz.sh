#!/usr/bin/env bash
# fuzz.sh PYTHON BUILD SECONDS [TARGET...]: replays the corpus of each fuzz target once, then fuzzes it
# for that many seconds, two targets at a time. Prints a line a target; ends with a failure if one
# found something. Inputs that fail lie in BUILD/findings. FUZZ_SEED fixes what is drawn.
set -euo pipefail

python=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
mkdir -p "$2"
build=$(cd "$2" && pwd)
seconds=$3
cd "$(dirname "$0")/.."

programs=$build/tests/fuzz
native=(dense sparse bit clifford export replies)
# Left out where the interpreter has no library to embed.
[[ -x $programs/fuzz_boundary ]] && native+=(boundary)
targets=("${@:4}")
((${#targets[@]})) || targets=("${native[@]}" qasm files)

export python build seconds programs
# Most inputs free less than 1 MiB, so that their blocks stay in quarantine. Without stacks of allocations,
# which cost time: a finding shows them when it is run again without these options.
export ASAN_OPTIONS=quarantine_size_mb=1:malloc_context_size=1:allocator_may_return_null=1
export UBSAN_OPTIONS=print_stacktrace=1
# The order of Python's sets decides what is drawn next.
export PYTHONHASHSEED=0

# Without the entropic schedule, whose bookkeeping takes a third of the time of such fast targets.
run_target() {
  local target=$1 corpus=$build/corpus/$1 log=$build/fuzz-$1.log
  local options=(-entropic=0 -reload=0 -timeout=60 -seed="${FUZZ_SEED:-0}"
    -artifact_prefix="$build/findings/$target-")
  local command=("$programs/fuzz_$target")
  case $target in
    qasm | files) command=("$python" "tests/fuzz/python/fuzz_$target.py") ;;
    boundary)
      # The interpreter does not free all its memory, and the engine reports failed connections.
      export ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0
      options+=(-close_fd_mask=2)
      ;;
  esac
  mkdir -p "$build/findings"
  "$python" tools/fuzz_corpus.py unpack "$target" "$corpus"
  # Each file once, and then new ones, which are shorter: they reach nearly all that long ones do, in half
  # the time and less.
  if ! { "${command[@]}" "${options[@]}" -max_len=400 -runs=0 "$corpus" &&
    "${command[@]}" "${options[@]}" -max_len=128 -max_total_time="$seconds" "$corpus"; } >"$log" 2>&1; then
    echo "$target: FAILED, see $log"
    tail -40 "$log"
    return 1
  fi
  awk -v target="$target" '/^Done/ { runs = $2; time = $5 }
    END { printf "%-9s %9d executions in %d s\n", target, runs, time }' "$log"
}
export -f run_target

printf '%s\n' "${targets[@]}" | xargs -P 2 -I{} bash -c 'run_target {}'
