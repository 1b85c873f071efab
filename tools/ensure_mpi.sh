#!/usr/bin/env bash
# Makes sure that mpirun is there: installs the distribution's Open MPI when that is possible without
# a question, else says in one line how to.
set -euo pipefail

has_mpi() {
  command -v mpirun >/dev/null
}

as_root() {
  if [[ "$(id -u)" == 0 ]]; then
    "$@"
  else
    sudo --non-interactive "$@"
  fi
}

has_mpi && exit 0

echo "mpirun not found; trying the distribution's package openmpi-bin"
if command -v apt-get >/dev/null && as_root true 2>/dev/null; then
  export DEBIAN_FRONTEND=noninteractive
  # Should either fail, the message below says what to do.
  as_root apt-get update -qq || true
  as_root apt-get install -qq --no-install-recommends openmpi-bin >/dev/null </dev/null || true
fi

if ! has_mpi; then
  echo "error: mpirun is missing: install Open MPI (Debian, Ubuntu: sudo apt-get install" \
    "openmpi-bin) or put the directory of mpirun into PATH" >&2
  exit 1
fi
