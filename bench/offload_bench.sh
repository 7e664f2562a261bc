#!/usr/bin/env bash
# Verified copies beside what people do by hand. Every contender starts with a source that is not in memory and with no
# copy, all of them in every round; printed are medians over the rounds.
#
# usage: bench/offload_bench.sh VELL [FOLDER] [MIB] [ROUNDS]     FOLDER: on the disk to measure (.); 2048 MiB; 3 rounds
set -euo pipefail

vell=$(realpath "$1")
folder=$(realpath "${2:-.}")
mib=${3:-2048}
rounds=${4:-3}
work=$(mktemp -d "$folder/offload-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"

source=$work/source/clip.mov
mkdir source
head -c "$((mib * 1048576))" /dev/urandom >"$source"
bytes=$(stat -c %s "$source")

forget() { # what is in memory of the source; it is on disk, so this needs no privileges
  sync "$source"
  dd if="$source" iflag=nocache count=0 status=none
}

# Contenders: each gets the destination folders, which exist and are empty.
vell_offload() { "$vell" offload --quiet source "$@"; }
vell_no_verify() { "$vell" offload --quiet --no-verify source "$@"; }
cp_sync_cmp() {
  local d
  for d; do cp "$source" "$d/"; done
  for d; do sync "$d/clip.mov" && cmp "$source" "$d/clip.mov"; done
}
cp_md5sum() {
  local d
  for d; do cp "$source" "$d/"; done
  md5sum "$source" >list
  for d; do md5sum <"$d/clip.mov" >>list; done
  [ "$(cut -d' ' -f1 list | sort -u | wc -l)" = 1 ]
}
rsync_twice() {
  local d
  for d; do rsync -a source/ "$d/" && rsync -ac source/ "$d/"; done
}
dd_direct() { # no check at all
  local d
  for d; do dd if="$source" of="$d/clip.mov" bs=4M iflag=direct oflag=direct conv=fsync status=none; done
}

# timed NAME DESTINATION...: seconds, into times.NAME.COUNT
timed() {
  local name=$1 start end
  shift
  rm -rf copy*
  mkdir "$@"
  sync .
  forget
  start=$(date +%s.%N)
  "$name" "$@" || { echo "$name failed" >&2; exit 1; }
  end=$(date +%s.%N)
  awk "BEGIN { print $end - $start }" >>"times.$name.$#"
  rm -rf "$@"
}

contenders="vell_offload vell_no_verify cp_sync_cmp cp_md5sum rsync_twice dd_direct"
for round in $(seq "$rounds"); do
  echo "round $round of $rounds" >&2
  for name in $contenders; do
    timed "$name" copy1
    timed "$name" copy1 copy2 copy3
  done
done

median() { sort -n "$1" | awk '{ t[NR] = $1 } END { print NR % 2 ? t[(NR + 1) / 2] : (t[NR / 2] + t[NR / 2 + 1]) / 2 }'; }
printf '%-16s %22s %26s\n' "$mib MiB, cold" "one destination" "three destinations"
for name in $contenders; do
  printf '%-16s' "$name"
  for count in 1 3; do
    awk -v t="$(median "times.$name.$count")" -v ours="$(median "times.vell_offload.$count")" -v bytes="$bytes" \
      'BEGIN { printf " %7.2f s %5.2f GB/s (%.2f)", t, bytes / t / 1e9, t / ours }'
  done
  echo
done
echo "(n): times as long as vell offload, which reads every copy back from the disk and keeps MD5 and XXH128"

# Bytes read from the disk, as the system counts them for the process (blocks of 512).
reads() {
  rm -rf copy*
  forget
  /usr/bin/time -f %I -o blocks "$vell" offload --quiet "$@"
  awk -v bytes="$bytes" '{ printf "%.2f", $1 * 512 / bytes }' blocks
}
echo "source sizes read: $(reads --no-verify source copy1) to copy it once," \
  "$(reads --no-verify source copy1 copy2 copy3) to copy it three times," \
  "$(reads source copy1 copy2 copy3) with three copies read back"
