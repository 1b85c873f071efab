#!/usr/bin/env bash
# reproducible_wheel.sh PYTHON: builds the wheel twice, from copies of the sources in folders of different
# names, and compares the two files byte by byte.
set -euo pipefail

python=$1
cd "$(dirname "$0")/.."
# Dates inside the archive are those of the last commit, or of a fixed day outside a checkout.
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null || echo 1767225600)
export SOURCE_DATE_EPOCH

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

build() {
  local copy="$work/$1"
  mkdir -p "$copy/wheel"
  cp -r CMakeLists.txt pyproject.toml README.md cmake cpp python "$copy"
  find "$copy" -name __pycache__ -prune -exec rm -rf {} +
  "$python" -m pip wheel --quiet --disable-pip-version-check --no-deps --wheel-dir "$copy/wheel" "$copy"
  sha256sum "$copy"/wheel/*.whl | sed "s|$work/||"
}

build first
build a-second-folder
cmp "$work"/first/wheel/*.whl "$work"/a-second-folder/wheel/*.whl
echo "the two wheels are equal"
