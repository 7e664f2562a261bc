#!/usr/bin/env bash
# Compares what the shared library exports with the committed lists, both ways.
# usage: packaging/check-symbols.sh LIBRARY [--update]
set -euo pipefail
library=$1
lists=$(dirname "${BASH_SOURCE[0]}")/symbols.txt

exported() { nm --dynamic --defined-only --demangle "$library" | cut -d' ' -f3- | LC_ALL=C sort -u; }

if [ "${2:-}" = --update ]; then
  exported >"$lists"
elif ! difference=$(diff <(LC_ALL=C sort -u "$lists") <(exported)); then
  printf 'exported symbols differ from packaging/symbols.txt (< listed, > exported):\n%s\n' "$difference" >&2
  exit 1
fi
