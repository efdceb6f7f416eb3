#!/usr/bin/env bash
# Runs clang-tidy over the source files that changed: since the branch left
# origin/main, or in the last commit and the work tree when it did not leave it.
# VORLANE_TIDY_BASE names another base.
set -euo pipefail
build=$1
base=${VORLANE_TIDY_BASE:-}
if [ -z "$base" ]; then
  base=$(git merge-base HEAD origin/main 2>/dev/null || true)
  [ -n "$base" ] && [ "$base" != "$(git rev-parse HEAD)" ] || base=$(git rev-parse --verify -q HEAD~1 || true)
fi
[ -n "$base" ] || base=$(git hash-object -t tree /dev/null)
mapfile -t files < <({
  git diff --name-only --diff-filter=d "$base" -- 'src/*.cpp' 'devcloud/*.cpp'
  git ls-files --others --exclude-standard -- 'src/*.cpp' 'devcloud/*.cpp'
} | sort -u)
echo "${#files[@]} changed source files"
[ ${#files[@]} -eq 0 ] && exit 0
printf '%s\0' "${files[@]}" | xargs -0 -n 4 -P "$(nproc)" clang-tidy-19 --quiet -p "$build" \
  --extra-arg=-Wno-unknown-warning-option 2> >(grep -v 'warnings generated' >&2)
