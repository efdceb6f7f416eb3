#!/usr/bin/env bash
# Installs what is missing of the packages of the named groups. Does nothing,
# and asks for nothing, when all are there. A line's third word is a command that
# stands for the package: where the command exists already, nothing is installed.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

wanted=()
while read -r group package program; do
  if [ -n "${program:-}" ] && command -v "$program" >/dev/null; then continue; fi
  for name in "$@"; do
    [ "$group" = "$name" ] && wanted+=("$package")
  done
done < <(grep -v '^#' "$here/packaging/packages.txt")

missing=()
# dpkg-query fails when it has never heard of one of them, which is the usual case here.
installed=" $({ dpkg-query -W -f '${db:Status-Abbrev}|${Package}\n' "${wanted[@]}" 2>/dev/null || true; } | sed -n 's/^ii *|//p' | tr '\n' ' ')"
for package in "${wanted[@]}"; do
  case "$installed" in *" $package "*) ;; *) missing+=("$package") ;; esac
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing ${missing[*]}" >&2
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
