#!/usr/bin/env bash
# coverage.sh PYTHON BUILD: lines and branches of cpp/ that are reached, from a build with
# NIMBREL_COVERAGE: by the corpora of the fuzz targets, by the native tests, by the Python tests of the
# module, and by all together. Lines that nothing reaches are listed in BUILD/unreached.txt.
set -euo pipefail

python=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
build=$(cd "$2" && pwd)
cd "$(dirname "$0")/.."
version=${LLVM_VERSION:-14}
profiles=$build/profiles
rm -rf "$profiles"
mkdir -p "$profiles"/{fuzz,native,python}

programs=("$build"/tests/fuzz/fuzz_*)
for program in "${programs[@]}"; do
  target=${program##*fuzz_}
  "$python" tools/fuzz_corpus.py unpack "$target" "$build/corpus/$target"
  LLVM_PROFILE_FILE="$profiles/fuzz/$target-%p.profraw" \
    "$program" -runs=0 "$build/corpus/$target" >"$build/replay-$target.log" 2>&1
done

tests=()
while IFS= read -r program; do tests+=("$program"); done \
  < <(find "$build/tests/native" -maxdepth 1 -name 'nimbrel_*_tests*' -type f -perm -u+x | sort)
for program in "${tests[@]}"; do
  LLVM_PROFILE_FILE="$profiles/native/$(basename "$program")-%p.profraw" "$program" --gtest_brief=1
done

modules=("$build"/lib/_lib_nb_sim*.so)
if [[ -e ${modules[0]} ]]; then
  LLVM_PROFILE_FILE="$profiles/python/%p.profraw" PYTHONPATH="$build/lib" \
    "$python" -m pytest -q tests/python/module tests/python/bit
fi

objects=()
for object in "${programs[@]}" "${tests[@]}" "${modules[@]}"; do
  [[ -e $object ]] && objects+=(-object "$object")
done

# report NAME PROFILE...
report() {
  local name=$1
  shift
  (($#)) || return 0
  "llvm-profdata-$version" merge -sparse -o "$build/$name.profdata" "$@"
  "llvm-cov-$version" report "${objects[@]:1}" -ignore-filename-regex='tests/' \
    -instr-profile "$build/$name.profdata" \
    >"$build/coverage-$name.txt"
  awk -v name="$name" '/^TOTAL/ { print name ": lines " $10 ", branches " $13 }' \
    "$build/coverage-$name.txt"
}

shopt -s nullglob
report fuzz "$profiles"/fuzz/*.profraw
report native "$profiles"/native/*.profraw
report python "$profiles"/python/*.profraw
report all "$profiles"/*/*.profraw
"llvm-cov-$version" export -format=lcov "${objects[@]:1}" -instr-profile "$build/all.profdata" -ignore-filename-regex='tests/' \
  | awk -F '[:,]' '/^SF:/ { file = $2 } /^DA:/ && $3 == 0 { print file ":" $2 }' \
  | sed 's|^.*/\(cpp/\)|\1|' >"$build/unreached.txt"
echo "$(wc -l <"$build/unreached.txt") lines are reached by nothing: $build/unreached.txt"
