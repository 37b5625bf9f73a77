#!/usr/bin/env bash
# corvane-net(1) renders without warnings and tells about every command the
# command lists, with the global options. Usage: man-page.sh PAGE TOOL
set -euo pipefail
page=$1; tool=$2
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
MANWIDTH=100 man --warnings -l "$page" 2>"$work/warnings" | col -b >"$work/text"
if [ -s "$work/warnings" ]; then cat "$work/warnings"; exit 1; fi
status=0
commands=$("$tool" --help | sed -n '/^Commands:$/,/^$/p' | awk 'NF > 1 { print $1 }')
[ -n "$commands" ] || { echo "no commands in: $tool --help"; exit 1; }
for command in $commands; do
  grep -q "^   $command\$" "$work/text" || { echo "no section for command $command"; status=1; }
  grep -q "Usage: corvane-net $command " "$work/text" || { echo "no usage of command $command"; status=1; }
done
for option in --set --log --log-config --json --stats --version; do
  grep -q "^       $option" "$work/text" || { echo "no global option $option"; status=1; }
done
exit $status
