#!/usr/bin/env bash
# Decode speed of rvtj2k against opj_decompress (and grk_decompress when
# installed), single-threaded, one run each, on a 4K frame (a test photo
# scaled by ffmpeg) and a photo as it is, lossless and at opj_compress -r 20
# -I; plus rvtj2k with 2 threads.  Wall-clock and user CPU seconds.
#
#   examples/rvtj2k/rvtj2k_decode_bench.sh RVTJ2K TESTDATA_DIR
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
djpeg -pnm "$data/hubble_deep_field.jpg" >"$tmp/hubble.ppm" 2>/dev/null && images+=("$tmp/hubble.ppm")
TIMEFORMAT='%R %U'
t() { { time "$@" >/dev/null 2>&1; } 2>&1 | tail -1; }
for img in "${images[@]}"; do
  for mode in lossless rate20; do
    oo=()
    [ "$mode" = rate20 ] && oo=(-r 20 -I)
    opj_compress -i "$img" -o "$tmp/o.j2k" ${oo[@]+"${oo[@]}"} >/dev/null 2>&1
    read -r ow ou < <(t opj_decompress -i "$tmp/o.j2k" -o "$tmp/o.ppm" -threads 1)
    gw=0 gu=0
    if command -v grk_decompress >/dev/null; then
      read -r gw gu < <(t grk_decompress -i "$tmp/o.j2k" -o "$tmp/g.ppm" -H 1)
    fi
    read -r rw ru < <(t "$tool" decode "$tmp/o.j2k" "$tmp/r.ppm")
    read -r tw tu < <(t "$tool" decode "$tmp/o.j2k" "$tmp/t.ppm" -threads 2)
    awk -v i="$(basename "$img" .ppm)" -v m="$mode" -v ow="$ow" -v ou="$ou" -v gw="$gw" -v gu="$gu" \
        -v rw="$rw" -v ru="$ru" -v tw="$tw" -v tu="$tu" 'BEGIN {
      printf "%-7s %-8s opj %6.3f s (user %6.3f) | grk %6.3f s (user %6.3f) | rvtj2k %6.3f s (user %6.3f): %.2fx opj, %.2fx grk (user) | 2 threads %6.3f s wall (%.2fx opj wall)\n",
             i, m, ow, ou, gw, gu, rw, ru, ou / ru, (ru > 0 && gu > 0) ? gu / ru : 0, tw, ow / tw }'
  done
done
