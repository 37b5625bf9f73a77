#!/usr/bin/env bash
# Installs the Debian packages corvane-net needs to build, test and run.
# Idempotent and quiet when nothing is missing. Usage: install-deps.sh [build|test|bench|package|coverage]
set -euo pipefail
what=${1:-build}

pkgs=(build-essential cmake ninja-build pkg-config
      libace-dev liblog4cplus-dev libc-ares-dev libdumbnet-dev libboost-regex-dev
      nlohmann-json3-dev libcli11-dev)
# The man page (help2man) and the .deb files (dpkg-shlibdeps, file).
packaging=(help2man dpkg-dev file)
case "$what" in
  build) ;;
  test)  pkgs+=(libgtest-dev libgmock-dev dnsmasq-base iproute2 clang-14 libclang-rt-14-dev ccache
               "${packaging[@]}" doxygen man-db) ;;
  bench) pkgs+=(libbenchmark-dev dnsmasq-base libosip2-dev libsofia-sip-ua-dev) ;;
  package) pkgs+=("${packaging[@]}") ;;
  coverage) pkgs+=(gcovr) ;;
  *) echo "usage: $0 [build|test|bench|package|coverage]" >&2; exit 2 ;;
esac

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO=sudo
$SUDO apt-get update -qq >/dev/null
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
