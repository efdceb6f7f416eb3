#!/usr/bin/env bash
# Installs what the lock file names, when that was not done yet.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
if ! cmp -s package-lock.json node_modules/.installed; then
  npm ci --no-audit --no-fund --ignore-scripts
  cp package-lock.json node_modules/.installed
fi
