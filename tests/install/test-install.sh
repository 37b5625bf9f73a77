#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds the examples against it
# through CMake (find_package) and through pkg-config, and runs them on names
# and URLs that need no network beyond this host.
set -euo pipefail
build_dir=$1; source_dir=$2
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build_dir" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libcorvane-net.so' | head -n1)")
export LD_LIBRARY_PATH=$libdir PKG_CONFIG_PATH=$libdir/pkgconfig

# The man page is installed when the build made one.
if [ -f "$build_dir/tools/corvane-net/corvane-net.1" ]; then
  cmp "$build_dir/tools/corvane-net/corvane-net.1" "$prefix/share/man/man1/corvane-net.1"
fi

# Checks that each expected line is in the output of a command.
expect_lines() {
  local output=$1; shift
  for line in "$@"; do
    grep -qxF -- "$line" <<<"$output" || { printf 'missing line: %s\nin:\n%s\n' "$line" "$output"; return 1; }
  done
}

run_examples() {
  local dir=$1 out
  out=$("$dir/resolve-names" --timeout 1000 localhost 127.0.0.1 --uri sip:alice@localhost)
  expect_lines "$out" "localhost: GHBN_SUCCESS 127.0.0.1" "127.0.0.1: GHBN_SUCCESS 127.0.0.1" \
    "sip:alice@localhost -> sip:alice@127.0.0.1:5060"
  out=$("$dir/compare-sip-urls" sip:alice@example.com SIP:alice@EXAMPLE.COM:5060 'sip:bob@example.com;transport=tcp')
  expect_lines "$out" \
    "sip:bob@example.com;transport=tcp: SIP_URL user=bob host=example.com port= transport=tcp -> sip:bob@example.com;transport=tcp" \
    "sip:alice@example.com == SIP:alice@EXAMPLE.COM:5060" \
    "sip:alice@example.com != sip:bob@example.com;transport=tcp"
}

cmake -S "$source_dir/examples" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake" >/dev/null
run_examples "$work/cmake"

mkdir "$work/pc"
for example in resolve-names compare-sip-urls; do
  # shellcheck disable=SC2046
  c++ -std=c++17 "$source_dir/examples/$example.cpp" -o "$work/pc/$example" $(pkg-config --cflags --libs corvane-net)
done
run_examples "$work/pc"
