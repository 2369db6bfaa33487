#!/usr/bin/env bash
# Encode speed of rvtjxr against JxrEncApp (single-threaded, as both are),
# one run each, on a 4K grey frame (a test photo scaled by ffmpeg, else
# mirrored into 3840x2160) and the grey photos as they are: lossless and at
# QP 30.  Times are wall-clock seconds, sizes bytes.
#
#   examples/rvtjxr/rvtjxr_encode_bench.sh RVTJXR TESTDATA_DIR
set -euo pipefail
tool=$1
data=$2
command -v JxrEncApp >/dev/null || { echo "JxrEncApp not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
images=()
if command -v ffmpeg >/dev/null; then
  ffmpeg -loglevel error -i "$data/retina.jpg" -vf scale=3840:2160,format=gray "$tmp/4k.pgm"
  images+=("$tmp/4k.pgm")
fi
for f in retina hubble_deep_field; do
  djpeg -grayscale -pnm "$data/$f.jpg" >"$tmp/$f.pgm" 2>/dev/null && images+=("$tmp/$f.pgm")
done
now() { date +%s.%N; }
for img in "${images[@]}"; do
  for q in 1 30; do
    a=$(now)
    JxrEncApp -i "$img" -o "$tmp/o.jxr" -c 2 -q "$q" >/dev/null 2>&1
    b=$(now)
    "$tool" encode "$img" "$tmp/r.jxr" -q "$q"
    c=$(now)
    awk -v a="$a" -v b="$b" -v c="$c" -v i="$(basename "$img" .pgm)" -v q="$q" \
        -v so="$(stat -c %s "$tmp/o.jxr")" -v sr="$(stat -c %s "$tmp/r.jxr")" 'BEGIN {
      printf "%-18s QP %-3d JxrEncApp %6.3f s %9d B | rvtjxr %6.3f s %9d B (%.2fx)\n",
             i, q, b - a, so, c - b, sr, (b - a) / (c - b) }'
  done
done
