#!/usr/bin/env bash
# install_packages.sh PACKAGE...: installs packages of a distribution with apt-get if that is possible
# without a question. Never fails: the caller looks whether it has what it needs, and says what to do.
set -uo pipefail

as_root() {
  if [[ "$(id -u)" == 0 ]]; then
    "$@"
  else
    sudo --non-interactive "$@"
  fi
}

if command -v apt-get >/dev/null && as_root true 2>/dev/null; then
  export DEBIAN_FRONTEND=noninteractive
  as_root apt-get update -qq
  as_root apt-get install -qq --no-install-recommends "$@" >/dev/null </dev/null
fi
exit 0
