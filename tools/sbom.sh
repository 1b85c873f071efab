#!/usr/bin/env bash
# sbom.sh PYTHON WHEEL OUTPUT: writes a CycloneDX bill of materials of the wheel and what it needs to run,
# from an environment that holds nothing else.
set -euo pipefail

python=$1
wheel=$2
output=$3
cd "$(dirname "$0")/.."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$python" -m venv "$work/environment"
"$work/environment/bin/python" -m pip install --quiet --disable-pip-version-check "$wheel"
# They came with the environment and are no part of what is shipped.
"$work/environment/bin/python" -m pip uninstall --quiet --yes setuptools pip
"$python" -m cyclonedx_py environment "$work/environment/bin/python" --pyproject pyproject.toml \
  --output-reproducible --output-format JSON --output-file "$output"
