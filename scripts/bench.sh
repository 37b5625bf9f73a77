#!/usr/bin/env bash
# Installs the benchmark peers when missing, builds in Release and runs
# corvane-bench; arguments go to Google Benchmark (e.g. --benchmark_filter=UrlDecode).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" test
"$root/scripts/install-deps.sh" bench
BUILD_TARGET=corvane_bench "$root/scripts/build.sh" "$root/build/bench" -DCMAKE_BUILD_TYPE=Release -DCORVANE_BENCH=ON >&2
exec "$root/build/bench/bench/corvane-bench" "$@"
