#!/usr/bin/env bash
# Builds the library, starts a rack of simulated UPS cards on loopback and runs a host program
# that loads the library with dlopen, as a host service does, and shows every UPS it watches.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSNMPLUMI_BUILD_TESTS=OFF
cmake --build build/demo --target snmplumi snmplumi-host snmplumi-upssim snmplumi-logview

work=$(mktemp -d)
sim_pid=
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

# The cards of tools/upssim/example.scenario: port 16161 on 127.16.0.1, 127.16.0.2 and a group
# of four on 127.16.1.1 to 127.16.1.4 with the community "private".
build/demo/tools/upssim/snmplumi-upssim --no-control --journal "$work/sets.log" \
  tools/upssim/example.scenario > "$work/sim.out" &
sim_pid=$!
for _ in $(seq 50); do grep -q '^ready' "$work/sim.out" 2>/dev/null && break; sleep 0.1; done
grep -q '^ready' "$work/sim.out" || { echo "the simulator did not start:"; cat "$work/sim.out"; exit 1; }

# An installation directory for the library, as a host would have under /usr/local/TELMAR.
mkdir -p "$work/home/data/UPS" "$work/home/data/snmptrap" "$work/snmp"
printf '[Lumi]\nTraceMode=ON\n' > "$work/home/data/config.apc"
printf '[Snmp]\nUPS_IP=127.16.0.1\nUPS_IP1=127.16.0.2\nUPS_IP2=127.16.9.9\nUPS_Com=public\n' \
  > "$work/home/data/snmp.apc"
printf 'defaultPort 16161\ntimeout 1\nretries 0\n' > "$work/snmp/snmp.conf"

echo
SNMPLUMI_HOME=$work/home SNMPCONFPATH=$work/snmp build/demo/tools/host/snmplumi-host "$@" || true
echo
echo "(127.16.9.9 is configured but no card answers there.)"
echo
echo "The library's log, oldest first (build/demo/tools/logview/snmplumi-logview):"
build/demo/tools/logview/snmplumi-logview "$work/home/data/snmplumi.log"
