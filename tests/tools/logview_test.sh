#!/usr/bin/env bash
# Usage: logview_test.sh LOGVIEW
# Oldest record first, trimmed, EUC-JP in UTF-8; filters; damage reported and the rest printed;
# a followed log printed as it is written.
set -euo pipefail
export LC_ALL=C  # a locale without a charset of its own: the texts come out in UTF-8
logview=$1
dir=$(mktemp -d)
follower=
trap '[ -n "$follower" ] && kill "$follower" 2>/dev/null; rm -rf "$dir"' EXIT
fail() { echo "$1:"; echo "$2"; exit 1; }
record() { printf '2026/11/22 23:28:0%d [%08x] %-80s\n' "$1" "${3:-0}" "$2"; }
trimmed() { for n in "$@"; do record "${n%%:*}" "${n#*:}"; done | sed 's/ *$//'; }

{ printf '00000224\n'; record 4 "fourth" 9; record 5 $'\xb2\xe1\xb5\xee\xa1\xa9'; record 3 "third"; } > "$dir/wrapped.log"
actual=$("$logview" "$dir/wrapped.log")
[ "$actual" = $'2026/11/22 23:28:03 [00000000] third\n2026/11/22 23:28:04 [00000009] fourth\n2026/11/22 23:28:05 [00000000] 過去？' ] ||
  fail "wrapped ring, converted" "$actual"
actual=$("$logview" --raw --since '2026/11/22 23:28:05' "$dir/wrapped.log")
[ "$actual" = $'2026/11/22 23:28:05 [00000000] \xb2\xe1\xb5\xee\xa1\xa9' ] || fail "raw, since" "$actual"
actual=$("$logview" --code 0x9 --until 2026-11-22T23:28:04 "$dir/wrapped.log")
[ "$actual" = "2026/11/22 23:28:04 [00000009] fourth" ] || fail "code, until" "$actual"

padded=$("$logview" --keep-padding <(printf '00000112\n'; record 1 "only"))
[ "${#padded}" -eq 111 ] || fail "padding kept: ${#padded} characters" "$padded"

# Header "0000x112", then a record, a torn one, a record older than the first.
{ printf '0000x112\n'; record 4 "fourth"; printf '%0111d\n' 0; record 3 "third"; } > "$dir/damaged.log"
status=0
actual=$("$logview" "$dir/damaged.log" 2>"$dir/damaged.err") || status=$?
[ "$status" -eq 1 ] && [ "$actual" = "$(trimmed 3:third 4:fourth)" ] || fail "damaged, exit $status" "$actual"
grep -q 'damaged.log: damaged header "0000x112\\n"' "$dir/damaged.err" &&
  grep -q 'damaged.log: torn record at byte 121 skipped' "$dir/damaged.err" || fail "damage" "$(cat "$dir/damaged.err")"
! "$logview" "$dir/missing.log" 2>/dev/null || fail "a missing file must fail" ""
! "$logview" --since yesterday "$dir/wrapped.log" 2>/dev/null || fail "a bad time must fail" ""

# Following a fresh file written as the library writes: the record, then the header; 0.2 s looks.
printf '00000\n' > "$dir/grow.log"
"$logview" -f "$dir/grow.log" > "$dir/follow.out" &
follower=$!
for n in 1 2; do
  sleep 0.3
  record "$n" "record $n" | dd of="$dir/grow.log" bs=1 seek=$((9 + 112 * (n - 1))) conv=notrunc status=none
  printf '%08d\n' $((112 * n)) | dd of="$dir/grow.log" conv=notrunc status=none
done
expected=$(trimmed "1:record 1" "2:record 2")
for _ in $(seq 100); do [ "$(cat "$dir/follow.out")" = "$expected" ] && break; sleep 0.1; done
[ "$(cat "$dir/follow.out")" = "$expected" ] || fail "followed" "$(cat "$dir/follow.out")"
echo "logview ok"
