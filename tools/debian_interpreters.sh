#!/usr/bin/env bash
# debian_interpreters.sh PYTHON...: runs tools/interpreters.sh with CPythons, and the compiler, of a Debian
# newer than this machine's, which is installed into build/SUITE. Needs root and debootstrap.
set -euo pipefail

cd "$(dirname "$0")/.."
suite=${DEBIAN_SUITE:-forky}
root=$PWD/build/$suite

packages=ca-certificates,g++,qemu-user
for python in "$@"; do packages+=,$python-venv,$python-dev; done
command -v debootstrap >/dev/null || tools/install_packages.sh debootstrap

# The script of "sid" serves each suite that this debootstrap does not know yet.
if [[ ! -e $root/.installed-$packages ]]; then
  rm -rf "$root"
  debootstrap --variant=minbase --include="$packages" "$suite" "$root" \
    "${DEBIAN_MIRROR:-http://deb.debian.org/debian}" /usr/share/debootstrap/scripts/sid
  touch "$root/.installed-$packages"
fi

# As this machine reaches its package index.
cp /etc/resolv.conf /etc/hosts "$root/etc/"
cp /etc/ssl/certs/ca-certificates.crt "$root/etc/ssl/certs/"

rm -rf "$root/src"
mkdir "$root/src"
git ls-files -z | tar --null --files-from - --create | tar --extract --directory "$root/src"

# Mounts of a namespace of its own end with it.
unshare --mount bash -euo pipefail -c '
  mount -t proc proc "$1/proc"
  mount --rbind /dev "$1/dev"
  root=$1
  shift
  exec chroot "$root" /src/tools/interpreters.sh "$@"' _ "$root" "$@"
