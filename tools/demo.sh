#!/usr/bin/env bash
# A real clip through the tool, checked against ffmpeg, and a card with it offloaded. Every figure printed is measured in this run, and any mismatch
# ends it with an error.
#
# usage: tools/demo.sh VELL [FOLDER]     VELL: the built tool; FOLDER: for the contact sheet and the lists of hashes
# VELL_DEMO_HEAP (64M) is the memory given to the tool; the clip is ten times as large.
set -euo pipefail

vell=$(realpath "$1")
folder=${2:-demo-output}
heap=${VELL_DEMO_HEAP:-64M}
window=9
width=1280
height=720
slack_mib=64 # what the process may take beside the heap: code, buffers, stacks

fail() {
  echo "demo: $*" >&2
  exit 1
}
step() { printf '\n== %s\n' "$*"; }

command -v ffmpeg >/dev/null || fail "ffmpeg is missing; ./dev setup installs it"
heap_bytes=$(numfmt --from=iec "$heap") || fail "VELL_DEMO_HEAP=$heap is no size"
frame_bytes=$((width * height * 3 / 2))
frames=$((heap_bytes * 10 / frame_bytes + 1))
mkdir -p "$folder"
folder=$(realpath "$folder")
work=$(mktemp -d "$folder/clips.XXXXXX")
trap 'rm -rf "$work"' EXIT
needed_kib=$((frames * frame_bytes * 4 / 1024))
free_kib=$(df --output=avail -k "$work" | tail -1)
[ "$free_kib" -gt "$needed_kib" ] || fail "$folder has $((free_kib / 1024)) MiB free, $((needed_kib / 1024)) are needed"

step "a clip of $frames frames of ${width}x$height, ten times the heap of $heap"
ffmpeg -v error -y \
  -f lavfi -i "testsrc2=size=$((width / 2))x$height:rate=25" \
  -f lavfi -i "mandelbrot=size=$((width / 2))x$height:rate=25:maxiter=1000" \
  -filter_complex "[0:v]format=yuv420p[a];[1:v]format=yuv420p[b];[a][b]hstack" \
  -frames:v "$frames" -pix_fmt yuv420p "$work/source.y4m"
"$vell" clip info "$work/source.y4m"

# The hash of every frame, in ffmpeg's own list.
ffmpeg_hashes() { ffmpeg -v error -nostdin "$@" -fflags +bitexact -f framemd5 -; }
hashes_only() { grep '^0,' "$1" | awk '{ print $NF }'; }

# same WHAT LIST-A LIST-B: the lists hold the same hashes, one for each frame of the clip.
same() {
  local count
  count=$(wc -l <"$2")
  [ "$count" = "$frames" ] || fail "$1: $count frames instead of $frames"
  cmp -s "$2" "$3" || fail "$1: $(diff "$2" "$3" | grep -c '^<') of $frames frames differ"
  echo "checked: $1 ($frames frames)"
}

results=()
# run NAME ARGUMENTS...: a command with --stats, whose memory must stay within heap and slack.
run() {
  local name=$1 stats=$work/$1.stats peak_bytes
  shift
  "$vell" clip "$@" --heap "$heap" --stats 2>"$stats" || { cat "$stats" >&2; fail "$name failed"; }
  value() { sed -n "s/^$1: *//p" "$stats"; }
  peak_bytes=$(value "peak memory" | sed 's/ MiB/M/; s/ GiB/G/; s/ KiB/K/' | numfmt --from=iec)
  [ "$peak_bytes" -le $((heap_bytes + slack_mib * 1024 * 1024)) ] ||
    fail "$name took $(value "peak memory"), more than $heap and $slack_mib MiB"
  results+=("$(printf '%-9s %18s %8s %8s %9s %9s %6s %12s' "$name" "$(value rate)" "$(value reads)" \
    "$(value 'cache hits')" "$(value re-reads)" "$(value discards)" "$(value 'waits for room')" "$(value 'peak memory')")")
}

step "the tool at work with --heap $heap on $(nproc) processors"
run framemd5 framemd5 "$work/source.y4m" >"$folder/source.framemd5"
run proxy proxy "$work/source.y4m" "$work/proxy.y4m"
run average average "$work/source.y4m" "$work/average.y4m" --window "$window"
run reverse reverse "$work/source.y4m" "$work/reverse.y4m"
printf '%-9s %18s %8s %8s %9s %9s %6s %12s\n' command rate reads hits re-reads discards waits "peak memory"
printf '%s\n' "${results[@]}"

step "the frames, against ffmpeg's"
ffmpeg_hashes -i "$work/source.y4m" >"$work/source.list"
cmp "$folder/source.framemd5" "$work/source.list" || fail "vell clip framemd5 and ffmpeg -f framemd5 differ"
echo "checked: framemd5 is ffmpeg's list, byte for byte ($(wc -l <"$work/source.list") lines)"
hashes_only "$work/source.list" >"$work/source.hashes"

ffmpeg_hashes -i "$work/reverse.y4m" >"$work/reverse.list"
hashes_only "$work/reverse.list" | tac >"$work/reverse.hashes"
same "reverse is the source from its end" "$work/reverse.hashes" "$work/source.hashes"

ffmpeg_hashes -i "$work/proxy.y4m" >"$folder/proxy.framemd5"
ffmpeg_hashes -i "$work/source.y4m" -vf "scale=iw/2:ih/2:flags=area" >"$work/area.list"
hashes_only "$folder/proxy.framemd5" >"$work/proxy.hashes"
hashes_only "$work/area.list" >"$work/area.hashes"
same "proxy is ffmpeg's area scaling" "$work/proxy.hashes" "$work/area.hashes"

# ffmpeg's mean looks back, the tool's looks both ways: apart from the ends they are the same frames.
half=$(((window - 1) / 2))
ffmpeg_hashes -i "$work/average.y4m" >"$folder/average.framemd5"
ffmpeg_hashes -i "$work/source.y4m" -vf "tmix=frames=$window,trim=start_frame=$((window - 1))" >"$work/tmix.list"
hashes_only "$folder/average.framemd5" | sed "1,${half}d" | head -n "-$half" >"$work/average.hashes"
hashes_only "$work/tmix.list" >"$work/tmix.hashes"
frames=$((frames - 2 * half)) same "average is ffmpeg's mean of $window frames" "$work/average.hashes" "$work/tmix.hashes"

step "the contact sheet"
sheet=$folder/contact-sheet.png
every=$((frames / 5))
row() { echo "[$1:v]select=not(mod(n-$((every / 2))\\,$every)),scale=320:180,tile=5x1:padding=4[$2]"; }
ffmpeg -v error -y -i "$work/source.y4m" -i "$work/proxy.y4m" -i "$work/average.y4m" -i "$work/reverse.y4m" \
  -filter_complex "$(row 0 a);$(row 1 b);$(row 2 c);$(row 3 d);[a][b][c][d]vstack=inputs=4" -frames:v 1 "$sheet"
[ -s "$sheet" ] || fail "no contact sheet was written"
echo "rows from the top: source, proxy, average of $window frames, reverse"
echo "contact sheet:     $sheet"
echo "hash lists:        $folder/{source,proxy,average}.framemd5"

rm -f "$work"/{proxy,average,reverse}.y4m
mkdir "$work/offload"
"$(dirname "${BASH_SOURCE[0]}")/demo_offload.sh" "$vell" "$work/source.y4m" "$work/offload"
