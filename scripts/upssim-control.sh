# shellcheck shell=bash
# Sourced by the demo and the host program's test: snmplumi-upssim in the background, its
# control commands going in on file descriptor 3 and its answers to DIR/sim.out.

# upssim_start UPSSIM DIR PREFIX SCENARIO: starts the simulator on the first free block
# PREFIX.N of loopback addresses, with the scenario that the function SCENARIO prints for the
# block in $net. Sets net and sim_pid (kill it on exit); on failure prints why and returns 1.
upssim_start() {
  local upssim=$1 dir=$2 prefix=$3 scenario=$4 status
  mkfifo "$dir/sim.in"
  exec 3<>"$dir/sim.in"
  for block in $(seq 0 20); do
    net=$prefix.$block
    "$scenario" > "$dir/sim.scenario"
    "$upssim" --journal "$dir/sets.log" "$dir/sim.scenario" <&3 > "$dir/sim.out" 2>&1 &
    sim_pid=$!
    for _ in $(seq 50); do
      grep -qs '^ready' "$dir/sim.out" || ! kill -0 "$sim_pid" 2>/dev/null && break
      sleep 0.1
    done
    grep -qs '^ready' "$dir/sim.out" && return 0
    kill "$sim_pid" 2>/dev/null || true
    status=0
    wait "$sim_pid" || status=$?
    sim_pid=
    [ "$status" -eq 2 ] || break  # 2: an address in use; anything else stays
  done
  echo "the simulator did not start:"
  cat "$dir/sim.out"
  return 1
}

# upssim_command DIR COMMAND...: one control command; 1 when no answer came within 5 s.
upssim_command() {
  local dir=$1 lines
  shift
  lines=$(wc -l < "$dir/sim.out")
  echo "$*" >&3
  for _ in $(seq 50); do
    [ "$(wc -l < "$dir/sim.out")" -gt "$lines" ] && return 0
    sleep 0.1
  done
  return 1
}
