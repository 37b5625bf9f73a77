#!/usr/bin/env bash
# Installs the build into a scratch prefix, then builds and runs a consumer
# program against it, through CMake and through pkg-config.
set -euo pipefail
build_dir=$1; source_dir=$2
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
cmake --install "$build_dir" --prefix "$work/prefix" >/dev/null
cmake -S "$source_dir/tests/install/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib/x86_64-linux-gnu" "$work/build/consumer"
PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig:$work/prefix/lib/x86_64-linux-gnu/pkgconfig" \
  c++ -std=c++17 "$source_dir/tests/install/consumer/main.cpp" -o "$work/consumer-pc" \
  $(PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig:$work/prefix/lib/x86_64-linux-gnu/pkgconfig" pkg-config --cflags --libs corvane-net)
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib/x86_64-linux-gnu" "$work/consumer-pc"
