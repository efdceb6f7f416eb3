#!/usr/bin/env bash
# ./test.sh        installs what is missing, builds under sanitizers, runs every test
# ./test.sh NAME   the same for the tests whose name matches NAME
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cd "$here"

scripts/install-packages.sh build test
export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1
# Quoted within, since the path may hold spaces.
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions='$here/tests/support/tsan.supp'"

if [ $# -eq 0 ]; then
  # The concurrent tests once more, under ThreadSanitizer.
  scripts/build.sh tsan concurrent_tests
  ctest --test-dir build/tsan --output-on-failure -L concurrent
fi

scripts/build.sh debug
[ $# -gt 0 ] || scripts/build.sh debug all_verify_interface_header_sets
ctest --test-dir build/debug --output-on-failure --no-tests=error ${1:+-R "$1"}
