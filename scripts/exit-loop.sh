#!/usr/bin/env bash
# Runs the exit scenario of DNS mode many times: a process resolves names that
# a silent DNS server never answers, closes the library without waiting and
# exits at once, while the resolver's threads are still ending. Every run must
# exit cleanly. Usage: exit-loop.sh [BUILD_DIR] [RUNS]   (default build/test-normal, 500)
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-$root/build/test-normal}
runs=${2:-500}
tests="$dir/tests/corvane_net_tests"
[ -x "$tests" ] || { echo "no test program at $tests (build first: scripts/build.sh $dir)" >&2; exit 2; }
# The child serves this address itself and never answers: every query stays in flight.
export CORVANE_EXIT_CHILD_SERVER=127.53.70.9
failed=0
start=$(date +%s)
for ((i = 1; i <= runs; i++)); do
  if ! out=$(timeout 60 "$tests" --gtest_filter=Lifecycle.ExitChildClosesWithQueriesInFlight 2>&1); then
    failed=$((failed + 1))
    echo "run $i failed:" >&2
    echo "$out" | tail -20 >&2
  fi
  (( i % 100 == 0 )) && echo "$i runs, $failed failed"
done
echo "exit scenario: $runs runs, $failed failed, $(( $(date +%s) - start )) s"
[ "$failed" -eq 0 ]
