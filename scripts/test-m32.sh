#!/usr/bin/env bash
# The host is a 32-bit process: builds the parts of the library that need no net-snmp with -m32
# (Debian's i386 net-snmp cannot be relied on) and runs their unit tests. Installs gcc-multilib
# and g++-multilib when missing; when they cannot be had, or 32-bit programs cannot run here, says
# so on one line and succeeds.
set -euo pipefail
cd "$(dirname "$0")/.."
start=$SECONDS
skip() {
  echo "== 32-bit core: SKIPPED, $1"
  exit 0
}

packages=(gcc-multilib g++-multilib)
missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
if [ "${#missing[@]}" -gt 0 ]; then
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || skip "${missing[*]} missing and no root or sudo to install them"
    as_root=(sudo -n)
  fi
  echo "m32: installing ${missing[*]}"
  if ! { "${as_root[@]}" apt-get update -q &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y -q --no-install-recommends "${missing[@]}"; } >/dev/null 2>&1; then
    skip "${missing[*]} cannot be installed"
  fi
fi

# The kernel may lack 32-bit support even where the compiler has it.
probe=$(mktemp -d)
trap 'rm -rf "$probe"' EXIT
echo 'int main() { return sizeof(void *) == 4 ? 0 : 1; }' >"$probe/probe.cpp"
g++ -m32 -o "$probe/probe" "$probe/probe.cpp" >/dev/null 2>&1 ||
  skip "g++ -m32 cannot link a program"
"$probe/probe" || skip "32-bit programs do not run on this machine"

echo "== 32-bit core (-m32): ring logs, profile store, format emulation, time arithmetic, frames"
build=build/ci-m32
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32 \
  -DSNMPLUMI_M32_CORE=ON -DSNMPLUMI_WERROR=ON >/dev/null
cmake --build "$build" -j "$(nproc)"
(cd "$build" && ctest -j "$(nproc)" --output-on-failure --timeout 120)
echo "== 32-bit core: passed in $((SECONDS - start)) s"
