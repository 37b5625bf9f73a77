#!/usr/bin/env bash
# Line coverage of the library (platform/, net/, vocal/, include/) by the whole
# test suite: an instrumented build in build/coverage, the suite, then gcovr's
# summary (and an HTML report in build/coverage/coverage.html).
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" test || exit 1
"$root/scripts/install-deps.sh" coverage || exit 1
dir="$root/build/coverage"
"$root/scripts/build.sh" "$dir" -DCMAKE_BUILD_TYPE=Debug -DCORVANE_COVERAGE=ON || exit 1
find "$dir" -name '*.gcda' -delete
(cd "$dir" && ctest -j"$(nproc)" --timeout 600 --output-on-failure) || echo "some tests failed: the figure below counts what ran" >&2
filters=()
for d in platform net vocal include; do filters+=(--filter "$root/$d/"); done
gcovr --root "$root" "${filters[@]}" --object-directory "$dir" -j "$(nproc)" \
      --print-summary --html-details "$dir/coverage.html" "$@"
