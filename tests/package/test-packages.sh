#!/usr/bin/env bash
# Makes the Debian packages of a build tree with CPack and checks each one's
# files and dependencies with dpkg-deb. Usage: test-packages.sh BUILD_DIR VERSION
set -euo pipefail
build_dir=$1; version=$2-1
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
(cd "$build_dir" && cpack -G DEB -B "$work" >"$work/cpack.log" 2>&1) || { cat "$work/cpack.log"; exit 1; }

status=0
fail() { echo "$*"; status=1; }

# package | files it must hold | dependencies it must name (extended regexps, separated by ;)
rows=(
  "libcorvane-net0|/lib/(x86_64-linux-gnu/)?libcorvane-net\.so\.0;/lib/(x86_64-linux-gnu/)?libcorvane-platform\.so\.0|libace-;liblog4cplus-;libc-ares2;libdumbnet1;libboost-regex;libc6;libstdc\+\+6"
  "libcorvane-net-dev|/include/corvane/net/HostNameServer\.h;/include/corvane/vocal/SipUrl\.h;/include/corvane/platform/Logger\.h;/libcorvane-net\.so$;/cmake/CorvaneNet/CorvaneNetConfig\.cmake;/pkgconfig/corvane-net\.pc|libcorvane-net0 \(= $version\);libace-dev;liblog4cplus-dev;libc-ares-dev;libboost-regex-dev"
  "corvane-net|/bin/corvane-net$|libcorvane-net0 \(= $version\);libc6;libstdc\+\+6"
)
if [ -f "$build_dir/tools/corvane-net/corvane-net.1" ]; then rows[2]=${rows[2]/corvane-net$|/corvane-net$;/man1/corvane-net\.1$|}; fi

for row in "${rows[@]}"; do
  IFS='|' read -r package file_list depends_list <<<"$row"
  IFS=';' read -ra files <<<"$file_list"
  IFS=';' read -ra depends <<<"$depends_list"
  deb=$work/${package}_${version}_$(dpkg --print-architecture).deb
  [ -f "$deb" ] || { fail "no package $package"; continue; }
  dpkg-deb --contents "$deb" | awk '{ print $6 }' | sed 's|^\./|/|' >"$work/$package.files"
  for file in "${files[@]}"; do
    grep -qE "$file" "$work/$package.files" || fail "$package: no file matching $file"
  done
  line=$(dpkg-deb --info "$deb" | sed -n 's/^ Depends: //p')
  for dependency in "${depends[@]}"; do
    grep -qE "(^|, )$dependency" <<<"$line" || fail "$package: Depends: $line lacks $dependency"
  done
done

# Every file belongs to one package only, so that they install side by side.
cat "$work"/*.files | grep -v '/$' | sort | uniq -d >"$work/shared"
[ ! -s "$work/shared" ] || fail "files in more than one package: $(cat "$work/shared")"
exit $status
