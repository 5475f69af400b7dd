#!/usr/bin/env bash
# Fails when a C or C++ source differs from .clang-format.
set -euo pipefail
cd "$(dirname "$0")/.."
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  mapfile -t files < <(git ls-files --cached --others --exclude-standard \
    '*.c' '*.cc' '*.cpp' '*.h' '*.hpp')
else
  mapfile -t files < <(find include src tools tests bench -name '*.[ch]' -o -name '*.cpp' 2>/dev/null)
fi
[ "${#files[@]}" -eq 0 ] && exit 0
clang-format --dry-run --Werror "${files[@]}"
echo "format: ${#files[@]} files clean"
