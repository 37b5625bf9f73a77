#!/usr/bin/env bash
# Installs what is missing, builds and runs the whole test suite: a normal
# build, then ASan+UBSan, then TSan. Each build tree is kept, so a second run
# rebuilds only what changed.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" test || exit 1
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$root/tests/tsan.supp"
jobs=$(nproc)
status=0
for variant in normal address thread; do
  dir="$root/build/test-$variant"
  sanitize=""; [ "$variant" = normal ] || sanitize=$variant
  echo "=== $variant build ==="
  start=$(date +%s)
  if ! "$root/scripts/build.sh" "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCORVANE_SANITIZE="$sanitize"; then
    echo "build failed: $variant"; status=1; continue
  fi
  echo "built in $(( $(date +%s) - start )) s"
  start=$(date +%s)
  (cd "$dir" && ctest --output-on-failure -j"$jobs" --timeout 600) || status=1
  echo "$variant tests ran in $(( $(date +%s) - start )) s"
done
"$root/scripts/test-size.sh"
exit $status
