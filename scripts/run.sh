#!/usr/bin/env bash
# Installs what is missing, builds corvane-net and runs it with the given arguments.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" build
"$root/scripts/build.sh" "$root/build/release" -DCMAKE_BUILD_TYPE=Release -DCORVANE_TESTS=OFF >&2
exec "$root/build/release/tools/corvane-net/corvane-net" "$@"
