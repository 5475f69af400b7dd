#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need; skips what is installed.
# "setup.sh demo" installs only what the demo's build needs.
set -euo pipefail

packages=(build-essential cmake ninja-build pkg-config libsnmp-dev)
if [ "${1:-}" != demo ]; then
  packages+=(
    binutils g++ clang libclang-rt-14-dev clang-format
    libgtest-dev libbenchmark-dev
    snmp valgrind
    dpkg-dev file
  )
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
[ "${#missing[@]}" -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: need root or sudo to install ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
