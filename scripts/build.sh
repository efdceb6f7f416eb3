#!/usr/bin/env bash
# build.sh PRESET [TARGET ...]: configures the preset when that was not done yet, and builds.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
preset=$1
shift

# The precompiled header is made anew in each build folder; its users are the
# same all the same, and relative paths let two clones share what was compiled.
export CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_BASEDIR=$here CCACHE_NOHASHDIR=1

cd "$here"
[ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >/dev/null
cmake --build "build/$preset" ${1:+--target "$@"} -- --quiet
