#!/usr/bin/env bash
# net-snmp's own snmpget, snmpset and snmpwalk agree with the simulator on values, types and error
# statuses. Usage: net_snmp_tools_test.sh PATH-TO-snmplumi-upssim
set -euo pipefail

simulator=$1
dir=$(mktemp -d "${TMPDIR:-/tmp}/upssim-tools-XXXXXX")
failures=0
sim_pid=

cleanup() {
  if [[ -n $sim_pid ]]; then kill "$sim_pid" 2>/dev/null || true; fi
  rm -rf "$dir"
}
trap cleanup EXIT

# No MIB files and no snmp.conf of the user: numeric OIDs only.
export MIBS= MIBDIRS= SNMPCONFPATH=$dir/client
mkdir -p "$dir/client"

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

expect_eq() {  # what, expected, actual
  [[ $2 == "$3" ]] || fail "$1: expected [$2], got [$3]"
}

expect_contains() {  # what, needle, haystack
  [[ $3 == *"$2"* ]] || fail "$1: [$2] not in [$3]"
}

start() {
  local attempt line status
  for attempt in 1 2 3 4 5 6; do
    local a=$((16 + RANDOM % 239)) b=$((RANDOM % 256))
    port=$((20000 + RANDOM % 12000))
    ups0=127.$a.$b.1
    ups1=127.$a.$b.2
    printf 'port %d\ncard ups0 %s\ncard ups1 %s private\n' "$port" "$ups0" "$ups1" >"$dir/cards"
    coproc SIM { exec "$simulator" --journal "$dir/journal" "$dir/cards" 2>"$dir/stderr"; }
    sim_pid=$SIM_PID
    if read -t 10 -r line <&"${SIM[0]}" && [[ $line == ready* ]]; then return 0; fi
    status=0
    wait "$sim_pid" || status=$?
    sim_pid=
    [[ $status == 2 ]] || { echo "simulator did not start: $(cat "$dir/stderr")" >&2; exit 1; }
  done
  echo "no free loopback address found" >&2
  exit 1
}

control() {  # one command; prints the reply
  local reply
  echo "$*" >&"${SIM[1]}"
  IFS= read -t 10 -r reply <&"${SIM[0]}"
  echo "$reply"
}

snmp() {  # tool, card address, arguments...; prints output and error output, never fails
  local tool=$1 address=$2
  shift 2
  "$tool" -v1 -c public -On -m '' -t 1 -r 0 "$address:$port" "$@" 2>&1 || true
}

# net-snmp's rendering of a value the simulator shows as "ok LETTER VALUE".
rendering() {
  case $1 in
    i) echo "INTEGER: $2" ;;
    u) echo "Gauge32: $2" ;;
    t) echo "Timeticks: ($2)" ;;
    a) echo "IpAddress: $2" ;;
    s) echo "STRING: \"$2\"" ;;
    *) echo "unknown letter $1" ;;
  esac
}

start

# Walk: every object, in order, with the value and type the control channel reports.
walk=$(snmp snmpwalk "$ups0" .1.3.6.1)
count=0
while IFS= read -r line; do
  [[ $line == .1.3.6.1.* ]] || continue
  count=$((count + 1))
  oid=${line%% = *}
  shown=${line#* = }
  reply=$(control get ups0 "$oid")
  letter=${reply:3:1}
  value=${reply:5}
  expected=$(rendering "$letter" "$value")
  if [[ $letter == t ]]; then shown=${shown% *}; fi  # "Timeticks: (9000) 0:01:30.00"
  expect_eq "walk $oid" "$expected" "$shown"
done <<<"$walk"
expect_eq "objects walked" 48 "$count"
expect_contains "walk end" "End of MIB" "$walk"

# GET of several objects at once, and of an unknown one.
got=$(snmp snmpget "$ups0" .1.3.6.1.4.1.318.1.1.1.4.1.1.0 .1.3.6.1.4.1.318.1.1.1.2.2.1.0 \
  .1.3.6.1.4.1.318.1.1.1.1.2.3.0)
expect_contains "status" ".1.3.6.1.4.1.318.1.1.1.4.1.1.0 = INTEGER: 2" "$got"
expect_contains "capacity" ".1.3.6.1.4.1.318.1.1.1.2.2.1.0 = Gauge32: 100" "$got"
expect_contains "serial with blanks" '.1.3.6.1.4.1.318.1.1.1.1.2.3.0 = STRING: "AS0812000001    "' "$got"
got=$(snmp snmpget "$ups0" .1.3.6.1.4.1.318.1.1.1.8.1.0 .1.3.6.1.4.1.318.1.1.1.4.1.9.0)
expect_contains "unknown object" "(noSuchName)" "$got"
expect_contains "unknown object index" "Failed object: .1.3.6.1.4.1.318.1.1.1.4.1.9.0" "$got"

# SETs of each type are echoed by snmpset and kept by the card.
sets=0
check_set() {  # oid, letter, value, net-snmp rendering
  local out
  out=$(snmp snmpset "$ups0" "$1" "$2" "$3")
  sets=$((sets + 1))
  expect_contains "snmpset $1" "$1 = $4" "$out"
  expect_eq "kept $1" "ok ${2/x/s} $3" "$(control get ups0 "$1")"
}
check_set .1.3.6.1.4.1.318.1.1.1.1.1.2.0 s "rack 9" 'STRING: "rack 9"'
check_set .1.3.6.1.4.1.318.1.1.1.5.2.4.0 i 3 "INTEGER: 3"
check_set .1.3.6.1.4.1.318.1.1.1.5.2.10.0 t 12000 "Timeticks: (12000)"
check_set .1.3.6.1.4.1.318.1.1.1.10.1.5.0 a 224.0.0.5 "IpAddress: 224.0.0.5"

# Error statuses as net-snmp reports them.
out=$(snmp snmpset "$ups0" .1.3.6.1.4.1.318.1.1.1.4.1.1.0 i 7)
sets=$((sets + 1))
expect_contains "set read-only" "(noSuchName)" "$out"
out=$(snmp snmpset "$ups0" .1.3.6.1.4.1.318.1.1.1.5.2.10.0 i 100)
sets=$((sets + 1))
expect_contains "set wrong type" "(badValue)" "$out"
out=$(snmp snmpset "$ups0" .1.3.6.1.4.1.318.1.1.1.6.1.1.0 i 2)
sets=$((sets + 1))
expect_contains "conserve battery on line" "(badValue)" "$out"
expect_eq "inject" ok "$(control error ups0 upsCommStatus get genErr)"
expect_contains "injected genErr" "(genError)" "$(snmp snmpget "$ups0" .1.3.6.1.4.1.318.1.1.1.8.1.0)"
expect_eq "inject" ok "$(control error ups0 upsAdvConfigAlarm set readOnly)"
out=$(snmp snmpset "$ups0" .1.3.6.1.4.1.318.1.1.1.5.2.4.0 i 2)
sets=$((sets + 1))
expect_contains "injected readOnly" "(readOnly)" "$out"
expect_eq "alarm unchanged" "ok i 3" "$(control get ups0 upsAdvConfigAlarm)"

# Power orders seen through snmpget.
snmp snmpset "$ups0" .1.3.6.1.4.1.318.1.1.1.6.2.1.0 i 2 >/dev/null
sets=$((sets + 1))
got=$(snmp snmpget "$ups0" .1.3.6.1.4.1.318.1.1.1.4.1.1.0 .1.3.6.1.4.1.318.1.1.1.4.2.1.0)
expect_contains "off" ".1.3.6.1.4.1.318.1.1.1.4.1.1.0 = INTEGER: 7" "$got"
expect_contains "off voltage" ".1.3.6.1.4.1.318.1.1.1.4.2.1.0 = Gauge32: 0" "$got"

# Only SNMP v1, only the card's community.
expect_contains "v2c" "Timeout" "$(snmpget -v2c -c public -On -m '' -t 1 -r 0 "$ups0:$port" \
  .1.3.6.1.2.1.1.1.0 2>&1 || true)"
expect_contains "wrong community" "Timeout" "$(snmp snmpget "$ups1" .1.3.6.1.2.1.1.1.0)"
expect_contains "own community" "= INTEGER: 1" "$(snmpget -v1 -c private -On -m '' -t 1 -r 0 \
  "$ups1:$port" .1.3.6.1.4.1.318.1.1.1.8.1.0 2>&1 || true)"

# The journal holds one line per SET.
expect_eq "journal lines" "$sets" "$(wc -l <"$dir/journal")"
expect_eq "journal last" "noError" "$(tail -n 1 "$dir/journal" | cut -f 6)"

expect_eq "quit" "ok bye" "$(control quit)"
status=0
wait "$sim_pid" || status=$?
sim_pid=
expect_eq "exit status" 0 "$status"

if ((failures > 0)); then
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "net-snmp tools agree with the simulator ($count objects walked)"
