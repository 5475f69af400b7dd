#!/usr/bin/env bash
# Usage: check_exports.sh LIBRARY EXPORT_LIST. Fails when the dynamic symbols the library defines
# differ from the export list, or when the library has no SONAME of its own.
set -euo pipefail
library=$1
export_list=$2

expected=$(sed -n 's/^SNMPLUMI_EXPORT(\(.*\))$/\1/p' "$export_list" | sort)
actual=$(nm -D --defined-only "$library" | awk 'NF == 3 { print $3 }' | sed 's/@.*//' | sort)

status=0
[ -n "$expected" ] || { echo "the export list is empty: $export_list"; status=1; }
diff <(echo "$expected") <(echo "$actual") ||
  { echo "< listed but not exported, > exported but not listed"; status=1; }
soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
[[ "$soname" =~ ^libsnmplumi\.so\.[0-9]+$ ]] || { echo "unexpected SONAME: '${soname}'"; status=1; }
[ "$status" -eq 0 ] && echo "$(echo "$expected" | wc -l) exports match; SONAME $soname"
exit "$status"
