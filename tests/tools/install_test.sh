#!/usr/bin/env bash
# Usage: install_test.sh BUILD_DIR COMPILER [FLAGS...]
# A C host built with `pkg-config --cflags --libs snmplumi` runs on the staged installation.
set -euo pipefail
build=$1 compiler=$2
shift 2
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail() { echo "$1:"; echo "$2"; exit 1; }

stage=$dir/stage/usr
cmake --install "$build" --prefix "$stage" > "$dir/install.log"
pc=$(find "$stage" -name snmplumi.pc)
export PKG_CONFIG_PATH=${pc%/*}
libdir=$(pkg-config --variable=libdir snmplumi)
[ "$(readlink "$libdir/libsnmplumi.so" "$libdir/libsnmplumi.so.1")" = $'libsnmplumi.so.1\nlibsnmplumi.so.1.0.0' ] ||
  fail "links" "$(ls -l "$libdir")"

cat > "$dir/host.c" <<'EOF'
#include <snmplumi.h>
#include <stdio.h>

int main(void) {
  char frame[64];
  snprintf(frame, sizeof frame, "%-48s", "0120000"); /* code, 0, length 000 */
  int result = TovLumiSend(0, 0, frame, 48);
  printf("%s %s %u %d %.9s%c\n", UpsIp[0], UpsCommunity, (unsigned)PowerFailWait, result, frame,
         frame[47]);
  return 0;
}
EOF
# shellcheck disable=SC2046  # pkg-config's flags are meant to split
"$compiler" "$@" -o "$dir/host" "$dir/host.c" $(pkg-config --cflags --libs snmplumi)

home=$dir/home
mkdir -p "$home/data/UPS" "$home/data/snmptrap"
cp "$stage/share/doc/snmplumi/examples/"*.apc "$home/data/"
actual=$(SNMPLUMI_HOME=$home SNMPLUMI_TRAP_REPORT_IP=127.0.0.2 LD_LIBRARY_PATH=$libdir "$dir/host")
[ "$actual" = "127.16.0.1 public 60 0 0120002420" ] || fail "the C host printed" "$actual"

log=$("$stage/bin/snmplumi-logview" "$home/data/snmplumi.log")
[[ $log == *"TovLumiSend(Cmd:012 / Len:000"* ]] || fail "the installed log viewer printed" "$log"
[ "$("$stage/bin/snmplumi-upssim" "$stage/share/doc/snmplumi/examples/example.scenario" < /dev/null)" = "ready 6 cards" ] ||
  fail "the installed example scenario did not load" ""
echo "install ok"
