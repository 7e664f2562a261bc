#!/usr/bin/env bash
# Runs the benchmarks and prints one table: each peer's time beside ours, and how many times ours it takes.
# usage: bench/run.sh FOLDER_WITH_THE_PROGRAMS [FILTER]
set -euo pipefail
folder=$1
filter=${2:-.}
results=$(mktemp)
trap 'rm -f "$results"' EXIT

for program in "$folder"/*_bench; do
  echo "running $(basename "$program")" >&2
  "$program" --benchmark_format=csv --benchmark_filter="$filter" 2>/dev/null | grep '^"' >>"$results" || true
done

# A name is group/who[/arguments]; rows of one group and one set of arguments are peers.
awk -F, '
  { gsub(/"/, "", $1); n = split($1, part, "/"); arguments = ""
    for (i = 3; i <= n; ++i) if (part[i] !~ /^(real_time|manual_time|iterations:.*)$/) arguments = arguments "/" part[i]
    key = part[1] arguments
    if (!(key in seen)) { seen[key] = 1; order[++keys] = key }
    factor = $5 == "us" ? 1e3 : $5 == "ms" ? 1e6 : $5 == "s" ? 1e9 : 1
    is_wall = $1 ~ /(real|manual)_time/
    time = (is_wall ? $3 : $4) * factor
    if (part[2] == "vellcore") ours[key] = time
    else { peers[key] = peers[key] SUBSEP part[2]; of[key, part[2]] = time } }
  function shown(ns) { return ns >= 1e6 ? sprintf("%.2f ms", ns / 1e6) : ns >= 1e3 ? sprintf("%.2f us", ns / 1e3) : sprintf("%.2f ns", ns) }
  END {
    printf "%-28s %12s   %s\n", "benchmark", "vellcore", "peers: time, and times as long as ours"
    for (k = 1; k <= keys; ++k) {
      key = order[k]
      if (!(key in ours)) continue
      line = sprintf("%-28s %12s  ", key, shown(ours[key]))
      n = split(substr(peers[key], 2), who, SUBSEP)
      for (i = 1; i <= n; ++i) line = line sprintf(" %s %s (%.2f)", who[i], shown(of[key, who[i]]), of[key, who[i]] / ours[key])
      print line } }' "$results"
