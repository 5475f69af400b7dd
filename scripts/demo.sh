#!/usr/bin/env bash
# The library's whole story against simulated UPS cards on loopback: start-up wait and parameter
# push, identification into UPS/UPSinfo.ini, a power failure seen by the watch, the event wait's
# status string, the "V00" shutdown, and which card received which order. A host program loads
# the library with dlopen, as a host service does.
#
# SNMPLUMI_DEMO_BUILD=DIR runs it with the tools of an existing build tree, without set-up or
# build (the test suite does this). The files of the run stay in DIR/demo-run.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ -n "${SNMPLUMI_DEMO_BUILD:-}" ]; then
  build=$SNMPLUMI_DEMO_BUILD
else
  bash scripts/setup.sh demo
  build=build/demo
  mkdir -p build
  echo "== Building the library and its tools in $build (log: build/demo.log)"
  if ! { cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DSNMPLUMI_BUILD_TESTS=OFF &&
    cmake --build "$build" --target snmplumi snmplumi-host snmplumi-upssim snmplumi-logview; } \
    > build/demo.log 2>&1; then
    tail -n 40 build/demo.log
    exit 1
  fi
fi
host=$build/tools/host/snmplumi-host
upssim=$build/tools/upssim/snmplumi-upssim
logview=$build/tools/logview/snmplumi-logview
run=$build/demo-run
start=$SECONDS

step() { printf '\n== %s\n' "$*"; }
say() { printf '   %s\n' "$*"; }
indent() { sed 's/^/   /'; }

rm -rf "$run"
home=$run/home
mkdir -p "$home/data/UPS" "$home/data/snmptrap" "$run/snmp" "$run/netsnmp/cert_indexes"
sim_pid=
cleanup() {
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null && wait "$sim_pid" 2>/dev/null
  return 0
}
trap cleanup EXIT

step "Three simulated UPS cards on loopback"
# Their control commands go in through a pipe; the journal records every SET they receive.
demo_cards() {
  cat <<EOF
port 16161
card main $net.1
card storage $net.2
set upsBasicIdentModel s Smart-UPS 3000
card network $net.3
set upsBasicIdentModel s Smart-UPS 750
EOF
}
source scripts/upssim-control.sh
upssim_start "$upssim" "$run" 127.42 demo_cards || exit 1
sim() { upssim_command "$run" "$@" || { echo "the simulator did not answer $*"; exit 1; }; }
say "main     $net.1  the host's own UPS        (UPS_IP in snmp.apc)"
say "storage  $net.2  a disk array's UPS        (UPS_IP_O0: watched for time on battery)"
say "network  $net.3  the network switches' UPS (UPS_IP_O1)"

# The installation directory a host would have under /usr/local/TELMAR.
printf '[Lumi]\nTraceMode=ON\n' > "$home/data/config.apc"
cat > "$home/data/snmp.apc" <<EOF
[Snmp]
UPS_IP=$net.1
UPS_IP_O0=$net.2
UPS_IP_O1=$net.3
UPS_Com=public
UPS_Power_fail_wait=30
EOF
cat > "$home/data/ac_e_net.apc" <<EOF
[rack]
ShutoffDelay=90
ReturnDelay=60
HighTransferVolt=110
LowTransferVolt=88
ConfigAlarm=1
ConfigAlarmTimer=30
MinReturnCapacity=50
Sensitivity=2
LowBatteryRunTime=300
BattExhaustThresh=60
TestDiagnosticSchedule=3
EOF
printf 'defaultPort 16161\ntimeout 1\nretries 0\n' > "$run/snmp/snmp.conf"
export SNMPLUMI_HOME=$home SNMPCONFPATH=$run/snmp SNMP_PERSISTENT_DIR=$run/netsnmp
say "installation directory $home: data/snmp.apc names them, data/ac_e_net.apc"
say "holds the UPS parameters of section [rack]"
echo
"$host" status | indent

step "Start-up wait: which cards answer, then the parameters of snmp.apc pushed to the host's UPS"
"$host" startup | tee "$run/startup.out" | indent || true
pushed=$(wc -l < "$run/sets.log")

step "Identification: each card recorded in UPS/UPSinfo.ini and configured from ac_e_net.apc"
record=1000
for card in main storage network; do
  record=$((record + 1))
  address=$(awk -v card="$card" '$1 == "card" && $2 == card { print $3 }' "$run/sim.scenario")
  "$host" register "$record" "$address" rack | indent
  "$host" check "$record" > "$run/check$record.out" || true
  grep -E '^  (UPS_type|UPS_Sno\.) |^a |^not ' "$run/check$record.out" | indent
done
say "(the library stores model and serial number with \"]]\" appended)"
identified=$(cat "$run"/check*.out | grep -c '^a new UPS' || true)
configured=$(($(wc -l < "$run/sets.log") - pushed))

step "The watch before the power failure (status words of every watched UPS)"
"$host" watch --passes 1 | indent

step "Mains fail on card main"
sim power main fail
sim set main upsBasicBatteryTimeOnBattery t 4500
say "the simulator moves main's time on battery to 45 s, so no one waits for it"
say "(the power-fail wait is UPS_Power_fail_wait=30 s)"

step "The event wait, with the watch beside it, then \"V00\""
say "The wait listens for traps on UDP port 162 when it can bind it; the library's trap"
say "call-back only logs, so there it would return on a stop only. --poll keeps 127.0.0.1:162"
say "in snmplumi-host: the wait reports from the status words, as it does wherever the port"
say "is taken or not permitted, and the story runs the same for root and for other users."
say "main is the one UPS of the host's table, so the event comes once main is past its wait."
before_v00=$(wc -l < "$run/sets.log")
"$host" wait --poll --shutdown --timeout 20 | tee "$run/wait.out" | indent || true

step "The simulator's journal: which card received which order"
name_of() {
  case $1 in
    .1.3.6.1.4.1.318.1.1.1.5.2.11.0) echo upsAdvConfigUpsSleepTime ;;
    .1.3.6.1.4.1.318.1.1.1.6.1.1.0) echo upsBasicControlConserveBattery ;;
    .1.3.6.1.4.1.318.1.1.1.6.2.1.0) echo upsAdvControlUpsOff ;;
    .1.3.6.1.4.1.318.1.1.1.6.2.3.0) echo upsAdvControlUpsSleep ;;
    *) echo "$1" ;;
  esac
}
# The SETs of each card among the journal lines on standard input.
per_card() {
  local lines card count counts=""
  lines=$(cat)
  for card in main storage network; do
    count=$(grep -cP "^[^\t]*\t$card\t" <<<"$lines" || true)
    [ "$count" -gt 0 ] && counts+="$card $count SETs, "
  done
  echo "${counts%, }"
}
say "start-up push:   $(head -n "$pushed" "$run/sets.log" | per_card)"
say "identification:  $(sed -n "$((pushed + 1)),${before_v00}p" "$run/sets.log" | per_card)"
say "V00:"
tail -n +"$((before_v00 + 1))" "$run/sets.log" > "$run/v00.log"
while IFS=$'\t' read -r time card oid _ value answer; do
  say "  ${time#*T}  $card  $(name_of "$oid") = $value  ($answer)"
done < "$run/v00.log"
echo
"$host" status | indent

step "Summary"
startup_ok() { grep -q "^WaitDromStartUp: 1" "$run/startup.out" && [ "$pushed" -eq 9 ]; }
identified_ok() {
  [ "$identified" -eq 3 ] && [ "$(grep -c "^UPS_type=" "$home/data/UPS/UPSinfo.ini")" -eq 3 ]
}
watch_ok() {
  grep -q "slot 0 .* 10     00     on battery" "$run/wait.out" &&
    grep -q "slot 0 .* 18     00     on battery, power-fail wait exceeded" "$run/wait.out"
}
event_ok() {
  grep -q "^status string  801001218000000000000000000000000000000000000000$" "$run/wait.out"
}
shutdown_ok() {
  grep -qP "\tmain\t.1.3.6.1.4.1.318.1.1.1.6.1.1.0\ti\t2\tnoError" "$run/v00.log" &&
    ! grep -qP "\t(storage|network)\t" "$run/v00.log"
}
passed=0
summary() {  # summary TEXT CHECK: one line, by what CHECK says
  if "$2"; then
    say "ok      $1"
    passed=$((passed + 1))
  else
    say "FAILED  $1"
  fi
}
summary "start-up wait: a card answered, $pushed parameters pushed to main" startup_ok
summary "identification: $identified UPSes recorded in UPS/UPSinfo.ini, $configured parameters set" \
  identified_ok
summary "watch: main on battery (10), then past its power-fail wait (18)" watch_ok
summary "event wait: status string 801001218..., the words of slot 0 (main)" event_ok
summary "V00: main told to conserve its battery; storage and network left alone" shutdown_ok
if [ "$passed" -eq 5 ]; then
  say "demo: all 5 steps as expected, in $((SECONDS - start)) s"
else
  say "demo: $((5 - passed)) of 5 steps not as expected"
fi
echo
say "The library's logs, oldest first:"
say "  $logview $home/data/snmplumi.log"
say "  $logview $home/data/UPS/UPS1001.LOG"
[ "$passed" -eq 5 ]
