#!/usr/bin/env bash
# A card offloaded to two folders, damaged, verified, and an offload killed half-way and finished. Every claim is checked,
# and what does not hold ends it with an error.
#
# usage: tools/demo_offload.sh VELL CLIP FOLDER     VELL: the built tool; CLIP: the largest file of the card;
#                                                   FOLDER: an empty one on CLIP's file system, for card and copies
set -euo pipefail

vell=$(realpath "$1")
clip=$(realpath "$2")
work=$(realpath "$3")
card=$work/card

fail() {
  echo "demo: $*" >&2
  exit 1
}
step() { printf '\n== %s\n' "$*"; }

for program in fincore md5sum xxhsum; do
  command -v "$program" >/dev/null || fail "$program is missing; ./dev setup installs it"
done

# With a terminal there are bars; without one the summaries are what matters.
with_bars() {
  if [ -t 2 ]; then "$@"; else "$@" | grep -v '^[a-z ]* *  /'; fi
}
files_in() { (cd "$1" && find . -type f ! -name .vell-offload ! -name '*SUMS' -print0); }

step "a card: the clip, small files, odd names, an image sequence with a gap"
mkdir -p "$card/DCIM/100MEDIA" "$card/stills" "$card/empty folder"
ln "$clip" "$card/DCIM/100MEDIA/A001_C001.y4m"
ffmpeg -v error -nostdin -i "$clip" -frames:v 60 -vf scale=320:180 -start_number 1001 "$card/stills/shot.%04d.png"
rm "$card/stills/shot.1017.png"
for i in $(seq 1 40); do head -c $((i * 997)) "$clip" >"$card/DCIM/100MEDIA/clip$i.xml"; done
for name in $'new\nline.txt' ' leading blank' '-dash' 'back\slash' $'no text \xff' "$(printf 'n%.0s' {1..255})"; do
  printf '%s' "$name" >"$card/$name"
done
: >"$card/empty file"
ln -s /etc/passwd "$card/link out of the card"
"$vell" ls "$card/stills"
card_bytes=$(files_in "$card" | (cd "$card" && du -cb --files0-from=- | tail -1 | cut -f1))
echo "$(files_in "$card" | tr -cd '\0' | wc -c) files, $((card_bytes / 1000000)) MB"

step "offloaded to two folders with one read of the card"
with_bars "$vell" offload "$card" "$work/first" "$work/second"
cached=0
for copy in first second; do
  resident=$(files_in "$work/$copy" | (cd "$work/$copy" && xargs -0 fincore --bytes --noheadings --output RES) |
    awk '{ sum += $1 } END { print sum + 0 }')
  cached=$((cached + resident))
done
echo "in memory of both copies, by fincore: $cached of $((2 * card_bytes)) bytes"
[ "$cached" -lt $((card_bytes / 50)) ] || fail "the copies are in memory: they may not have been read from the disk"
for copy in first second; do
  diff -r --no-dereference "$card" "$work/$copy" | grep -vE "^Only in $work/$copy: (\.vell-offload|[A-Z0-9]*SUMS)$" |
    grep -v "^Only in $card: link out of the card$" && fail "$copy differs from the card"
done
echo "checked: both folders hold what the card holds"

step "the list, checked by md5sum and xxhsum"
(cd "$work/first" && md5sum --quiet --strict -c MD5SUMS) || fail "md5sum does not agree"
(cd "$work/first" && xxhsum -c XXH128SUMS >/dev/null 2>&1) || fail "xxhsum does not agree"
echo "checked: md5sum -c and xxhsum -c agree with $(wc -l <"$work/first/MD5SUMS") lines each"

step "one byte flipped in the second copy, size and time as before"
victim=$work/second/DCIM/100MEDIA/A001_C001.y4m
at=$(($(stat -c %s "$victim") / 3))
touch -r "$victim" "$work/time"
byte=$(od -An -tu1 -j "$at" -N 1 "$victim")
printf "\\x$(printf %02x $((byte ^ 1)))" | dd of="$victim" bs=1 seek="$at" conv=notrunc status=none
touch -r "$work/time" "$victim"
code=0
"$vell" verify "$work/second" >"$work/verify" || code=$?
cat "$work/verify"
[ "$code" = 4 ] || fail "vell verify ended with $code instead of 4"
grep -q '^changed *DCIM/100MEDIA/A001_C001.y4m' "$work/verify" || fail "vell verify does not name the damaged file"
"$vell" verify "$work/first"

step "an offload killed half-way (kill -9), and finished"
"$vell" offload --quiet "$card" "$work/third" 2>/dev/null &
pid=$!
while [ -e "/proc/$pid/io" ] &&
  [ "$(awk '/^write_bytes/ { print $2 }' "/proc/$pid/io" 2>/dev/null || echo 0)" -lt $((card_bytes / 2)) ]; do :; done
kill -9 "$pid" 2>/dev/null || fail "the offload ended before it could be killed"
wait "$pid" 2>/dev/null || true
unfinished=$(find "$work/third" -name '.vell-*.part' | wc -l)
echo "after the kill: $(files_in "$work/third" | tr -cd '\0' | wc -c) files, $unfinished of them unfinished and hidden"
files_in "$work/third" | (cd "$work/third" && while IFS= read -r -d '' file; do
  [[ $file == */.vell-*.part ]] || cmp -s "$file" "$card/$file" || fail "$file is unfinished under its name"
done)
with_bars "$vell" offload "$card" "$work/third"
[ -z "$(find "$work/third" -name '.vell-*.part')" ] || fail "unfinished copies are left"
"$vell" verify "$work/third"
