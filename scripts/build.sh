#!/usr/bin/env bash
# Configures (once) and builds one build tree. Usage: build.sh DIR [cmake options...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$1; shift
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S "$root" -B "$dir" -G Ninja "$@" >/dev/null
else
  cmake "$dir" "$@" >/dev/null
fi
cmake --build "$dir" ${BUILD_TARGET:+--target "$BUILD_TARGET"} -- -j"$(nproc)" | grep -vE '^\[[0-9]+/[0-9]+\] ' || true
test "${PIPESTATUS[0]}" -eq 0
