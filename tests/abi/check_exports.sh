#!/usr/bin/env bash
# Usage: check_exports.sh LIBRARY EXPORT_LIST
# Fails when the dynamic symbols the library defines differ from the export list, or when the
# library has no SONAME.
set -euo pipefail
library=$1
export_list=$2

expected=$(sed -n 's/^SNMPLUMI_EXPORT(\(.*\))$/\1/p' "$export_list" | sort)
actual=$(nm -D --defined-only "$library" | awk 'NF == 3 { print $3 }' | sed 's/@.*//' | sort)

status=0
if [ -z "$expected" ]; then
  echo "the export list is empty: $export_list"
  status=1
fi
missing=$(comm -23 <(echo "$expected") <(echo "$actual"))
extra=$(comm -13 <(echo "$expected") <(echo "$actual"))
if [ -n "$missing" ]; then
  echo "listed but not exported:"; echo "$missing" | sed 's/^/  /'
  status=1
fi
if [ -n "$extra" ]; then
  echo "exported but not listed:"; echo "$extra" | sed 's/^/  /'
  status=1
fi
soname=$(readelf -d "$library" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [[ ! "$soname" =~ ^libsnmplumi\.so\.[0-9]+$ ]]; then
  echo "unexpected SONAME: '${soname}'"
  status=1
fi
[ "$status" -eq 0 ] && echo "$(echo "$expected" | wc -l) exports match; SONAME $soname"
exit "$status"
