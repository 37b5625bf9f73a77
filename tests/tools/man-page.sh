#!/usr/bin/env bash
# corvane-net(1) renders without warnings and tells about every command the
# command lists, with the global options. Usage: man-page.sh PAGE TOOL
set -euo pipefail
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
MANWIDTH=100 man --warnings -l "$1" 2>"$work/warnings" | col -b >"$work/text"
if [ -s "$work/warnings" ]; then cat "$work/warnings"; exit 1; fi
commands=$("$2" --help | sed -n '/^Commands:$/,/^$/p' | awk 'NF > 1 { print $1 }')
[ -n "$commands" ] || { echo "no commands in: $2 --help"; exit 1; }
for command in $commands; do
  grep -q "^   $command\$" "$work/text" || { echo "no section for command $command"; exit 1; }
  grep -q "Usage: corvane-net $command " "$work/text" || { echo "no usage of command $command"; exit 1; }
done
for option in --set --log --log-config --json --stats --version; do
  grep -q "^       $option" "$work/text" || { echo "no global option $option"; exit 1; }
done
