#!/usr/bin/env bash
# ./test.sh        installs what is missing, builds under sanitizers, runs every test
# ./test.sh NAME   the same for the tests whose name matches NAME
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "$here"

scripts/install-packages.sh build test
# The sanitizers look for llvm-symbolizer there, which Debian's package does not link from
# /usr/bin. Without function names the suppressions match nothing.
export PATH=/usr/lib/llvm-19/bin:$PATH
export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1
# Quoted within, since the path may hold spaces.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions='$here/tests/support/tsan.supp'"

run_tests() {
  local preset=$1
  shift
  ctest --test-dir "build/$preset" --output-on-failure --no-tests=error --parallel "$(nproc)" "$@"
}

if [ $# -eq 0 ]; then
  # The concurrent tests once more, under ThreadSanitizer.
  scripts/build.sh tsan concurrent_tests
  run_tests tsan -L concurrent
fi

scripts/build.sh debug
[ $# -gt 0 ] || scripts/build.sh debug all_verify_interface_header_sets
unshare -rn true 2>/dev/null || echo "network_path is skipped: no network namespace can be made here" >&2
run_tests debug ${1:+-R "$1"}
