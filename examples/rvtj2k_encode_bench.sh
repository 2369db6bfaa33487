#!/usr/bin/env bash
# Encode speed of rvtj2k against opj_compress, both single-threaded, one run
# each, on a 4K frame (a test photo scaled by ffmpeg) and the photos as
# they are: lossless and at -rate 20 (opj_compress -r 20 -I), plus rvtj2k
# with 2 threads.  Times are wall-clock seconds.
#
#   examples/rvtj2k_encode_bench.sh RVTJ2K TESTDATA_DIR
set -euo pipefail
tool=$1
data=$2
command -v opj_compress >/dev/null || { echo "opj_compress not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
images=()
if command -v ffmpeg >/dev/null; then
  ffmpeg -loglevel error -i "$data/retina.jpg" -vf scale=3840:2160 "$tmp/4k.ppm"
  images+=("$tmp/4k.ppm")
fi
for f in retina hubble_deep_field; do
  djpeg -pnm "$data/$f.jpg" >"$tmp/$f.ppm" 2>/dev/null && images+=("$tmp/$f.ppm")
done
now() { date +%s.%N; }
for img in "${images[@]}"; do
  for mode in lossless rate20; do
    oo=() ro=()
    [ "$mode" = rate20 ] && oo=(-r 20 -I) ro=(-rate 20)
    a=$(now)
    opj_compress -i "$img" -o "$tmp/o.j2k" -threads 1 ${oo[@]+"${oo[@]}"} >/dev/null 2>&1
    b=$(now)
    "$tool" encode "$img" "$tmp/r.j2k" ${ro[@]+"${ro[@]}"}
    c=$(now)
    "$tool" encode "$img" "$tmp/t.j2k" -threads 2 ${ro[@]+"${ro[@]}"}
    d=$(now)
    awk -v a="$a" -v b="$b" -v c="$c" -v d="$d" -v i="$(basename "$img" .ppm)" -v m="$mode" \
        -v so="$(stat -c %s "$tmp/o.j2k")" -v sr="$(stat -c %s "$tmp/r.j2k")" 'BEGIN {
      printf "%-18s %-8s opj_compress %6.3f s %9d B | rvtj2k %6.3f s %9d B (%.2fx) | 2 threads %6.3f s (%.2fx)\n",
             i, m, b - a, so, c - b, sr, (b - a) / (c - b), d - c, (b - a) / (d - c) }'
  done
done
