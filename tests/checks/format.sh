#!/usr/bin/env bash
# Fails on a file that clang-format would change.
set -euo pipefail
mapfile -t files < <(git ls-files --cached --others --exclude-standard -- '*.h' '*.cpp' |
  while read -r file; do [ ! -e "$file" ] || echo "$file"; done)
clang-format-19 --dry-run --Werror "${files[@]}"
echo "${#files[@]} files are formatted"
