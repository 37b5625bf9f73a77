#!/usr/bin/env bash
# Installs what is missing, builds in Release for /usr and makes the Debian
# packages with CPack: libcorvane-net0 (the libraries), libcorvane-net-dev (the
# development files) and corvane-net (the command and its man page).
# Usage: package.sh [OUTPUT_DIR]   (default: build/package/debs)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$(mkdir -p "${1:-$root/build/package/debs}" && cd "${1:-$root/build/package/debs}" && pwd)
"$root/scripts/install-deps.sh" build
"$root/scripts/install-deps.sh" package
"$root/scripts/build.sh" "$root/build/package" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DCORVANE_TESTS=OFF >&2
(cd "$root/build/package" && cpack -G DEB -B "$out" -D CPACK_STRIP_FILES=ON >&2)
rm -rf "$out/_CPack_Packages"
ls "$out"/*.deb
