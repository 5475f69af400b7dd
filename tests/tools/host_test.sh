#!/usr/bin/env bash
# Usage: host_test.sh HOST UPSSIM
# snmplumi-host on two simulated cards, by what a user reads; scripts/demo.sh tells the V00 story.
set -uo pipefail
host=$1 upssim=$2
dir=$(mktemp -d)
sim_pid=
trap '[ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null; rm -rf "$dir"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

two_cards() { printf 'port 16161\ncard main %s.1\ncard other %s.2\n' "$net" "$net"; }
source "$(dirname "$0")/../../scripts/upssim-control.sh"
upssim_start "$upssim" "$dir" 127.43 two_cards || exit 1

home=$dir/home
mkdir -p "$home/data/UPS" "$dir/snmp" "$dir/netsnmp/cert_indexes"
printf '[Lumi]\nTraceMode=ON\n' > "$home/data/config.apc"
printf '[Snmp]\nUPS_IP=%s.1\nUPS_IP_O0=%s.2\nUPS_Com=public\nUPS_Power_fail_wait=30\n' \
  "$net" "$net" > "$home/data/snmp.apc"
printf '[rack]\nShutoffDelay=90\nReturnDelay=60\nHighTransferVolt=110\nLowTransferVolt=88\nConfigAlarm=1\nConfigAlarmTimer=30\nMinReturnCapacity=50\nSensitivity=2\nLowBatteryRunTime=300\nBattExhaustThresh=60\nTestDiagnosticSchedule=3\n' > "$home/data/ac_e_net.apc"
printf 'defaultPort 16161\ntimeout 1\nretries 0\n' > "$dir/snmp/snmp.conf"
export SNMPLUMI_HOME=$home SNMPCONFPATH=$dir/snmp SNMP_PERSISTENT_DIR=$dir/netsnmp

# run STATUS ARGS...: the output in $out.
run() {
  out=$("$host" "${@:2}" 2>&1)
  local status=$?
  [ "$status" -eq "$1" ] || fail "${*:2} exited $status, not $1:"$'\n'"$out"
}
sees() { for text in "$@"; do grep -qF -- "$text" <<<"$out" || fail "no \"$text\" in:"$'\n'"$out"; done; }

run 0 status; sees "slot 0     $net.1" "onLine" "2 UPS configured, 2 answered"

run 0 register 1001 "$net.1" rack; sees "record 1001: IP $net.1, path rack"
run 0 check 1001; sees "UPS_type      Smart-UPS 1500]]" "a new UPS"

run 0 query "$net.1"; sees "GetUpsStatusFromSnmp         1  output 2 onLine"
run 0 report 1001; sees "output status      02 onLine" "capacity %         100"

run 0 send 012; sees 'data    "42"' "status  0       success"
run 1 send XYZ; sees "unknown to the unit" "status  A       refused"

run 1 wait --poll --timeout 1 --interval 0; sees "TovLumiGet: 1 (stopped)"
timeout --preserve-status -s TERM 1 "$host" wait --poll --interval 0 > "$dir/wait.out" 2>&1
[ $? -eq 1 ] && grep -q "^SIGTERM: TovLumiStop" "$dir/wait.out" || fail "SIGTERM: $(cat "$dir/wait.out")"

# A UPS of the other group past its wait (15 s) is an event on its own: the tenth field.
upssim_command "$dir" power other fail && upssim_command "$dir" set other upsBasicBatteryTimeOnBattery t 4500 ||
  fail "the simulator did not answer"
run 0 wait --poll --timeout 15; sees "others  18      other group: an other UPS on battery"

# Wrong arguments: one line, exit 2. A missing library or installation directory: exit 3.
refused() {
  "$host" "${@:2}" > "$dir/stdout" 2> "$dir/stderr"
  local status=$?
  [ "$status" -eq "$1" ] && [ ! -s "$dir/stdout" ] && [ "$(wc -l < "$dir/stderr")" -eq 1 ] ||
    fail "${*:2}: exit $status, $(cat "$dir/stdout" "$dir/stderr")"
}
refused 2 check 999
refused 2 register 1001 10.0.0.300 rack
refused 2 watch --passes x
refused 2 frobnicate
refused 3 --library "$dir/none.so" status
SNMPLUMI_HOME=$dir/none refused 3 status
grep -q "no installation directory $dir/none" "$dir/stderr" || fail "no home: $(cat "$dir/stderr")"

[ "$failures" -eq 0 ] || exit 1
echo "host ok"
