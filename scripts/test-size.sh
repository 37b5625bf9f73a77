#!/usr/bin/env bash
# The size of the test suite against the code it tests, in lines:
#   tests: every .cpp, .h, .py and .sh under tests/ and fuzz/
#   code:  every .cpp and .h under platform/, net/, vocal/, include/ and tools/
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
count() {
  local dir=$1; shift
  find "$root/$dir" -type f \( "$@" \) -print0 2>/dev/null | xargs -0 cat 2>/dev/null | wc -l
}
tests=0
for d in tests fuzz; do
  tests=$((tests + $(count "$d" -name '*.cpp' -o -name '*.h' -o -name '*.py' -o -name '*.sh')))
done
code=0
for d in platform net vocal include tools; do
  code=$((code + $(count "$d" -name '*.cpp' -o -name '*.h')))
done
awk -v t="$tests" -v c="$code" 'BEGIN { printf "test lines %d, code lines %d, ratio %.2f\n", t, c, (c ? t / c : 0) }'
