#!/usr/bin/env bash
# Usage: logview_test.sh LOGVIEW
# A wrapped ring prints from the header's position on, then from the start; padding is trimmed.
set -euo pipefail
logview=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

record() { printf '2026/11/22 23:28:0%d [00000000] %-80s\n' "$1" "$2"; }
{
  printf '00000224\n'
  record 4 "fourth"; record 5 "fifth"; record 3 "third"
} > "$dir/wrapped.log"
printf '00000\n' > "$dir/fresh.log"
{ printf '00000112\n'; record 1 "only"; } > "$dir/one.log"

expected=$'2026/11/22 23:28:03 [00000000] third\n2026/11/22 23:28:04 [00000000] fourth\n2026/11/22 23:28:05 [00000000] fifth'
actual=$("$logview" "$dir/wrapped.log")
[ "$actual" = "$expected" ] || { echo "wrapped ring:"; echo "$actual"; exit 1; }

[ -z "$("$logview" "$dir/fresh.log")" ] || { echo "a fresh file has no records"; exit 1; }

padded=$("$logview" --keep-padding "$dir/one.log")
[ "${#padded}" -eq 111 ] || { echo "padding kept: ${#padded} characters"; exit 1; }

if "$logview" "$dir/missing.log" 2>/dev/null; then echo "a missing file must fail"; exit 1; fi
echo "logview ok"
