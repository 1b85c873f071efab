#!/usr/bin/env bash
# Makes sure that mpirun is there: installs the distribution's Open MPI when that is possible without
# a question, else says in one line how to.
set -euo pipefail

has_mpi() {
  command -v mpirun >/dev/null
}

has_mpi && exit 0

echo "mpirun not found; trying the distribution's package openmpi-bin"
"$(dirname "$0")/install_packages.sh" openmpi-bin

if ! has_mpi; then
  echo "error: mpirun is missing: install Open MPI (Debian, Ubuntu: sudo apt-get install" \
    "openmpi-bin) or put the directory of mpirun into PATH" >&2
  exit 1
fi
