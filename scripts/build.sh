#!/usr/bin/env bash
# build.sh PRESET [TARGET ...]: configures the preset when that was not done yet or the
# presets have changed since, and builds.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
if [ $# -eq 0 ] || [[ $1 = -* ]]; then
  echo "usage: scripts/build.sh release|debug|tsan|fuzz|bench [TARGET ...]" >&2
  exit 2
fi
preset=$1
shift

# Each build folder has its own precompiled header, made of the same text;
# and relative paths let two clones share what was compiled.
export CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_BASEDIR=$here CCACHE_NOHASHDIR=1

cd "$here"
# The presets that the folder was configured with.
used=build/$preset/CMakePresets.json
if [ ! -f "build/$preset/build.ninja" ] || ! cmp -s CMakePresets.json "$used"; then
  # Afresh, since a value that a preset has dropped would stay in the cache.
  cmake --fresh --preset "$preset" >/dev/null
  cp CMakePresets.json "$used"
fi
cmake --build "build/$preset" ${1:+--target "$@"} -- --quiet
