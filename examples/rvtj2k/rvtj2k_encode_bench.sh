#!/usr/bin/env bash
# Encode speed of rvtj2k against opj_compress, both single-threaded, one run
# each, on a 4K frame (a test photo scaled by ffmpeg) and the photos as
# they are: lossless and at -rate 20 (opj_compress -r 20 -I), plus rvtj2k
# with 2 threads.  Times are CPU seconds (user + system, from
# /usr/bin/time when installed: on a loaded machine they move far less than
# wall-clock ones) beside wall-clock seconds.
#
#   examples/rvtj2k/rvtj2k_encode_bench.sh RVTJ2K TESTDATA_DIR
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
# Runs a command; prints "CPU WALL" seconds.
timed() {
  if [ -x /usr/bin/time ]; then
    /usr/bin/time -f "%U %S %e" -o "$tmp/t" "$@" >/dev/null 2>&1
    awk '{ printf "%.2f %.2f", $1 + $2, $3 }' "$tmp/t"
  else
    local a b
    a=$(date +%s.%N)
    "$@" >/dev/null 2>&1
    b=$(date +%s.%N)
    awk -v a="$a" -v b="$b" 'BEGIN { printf "%.2f %.2f", b - a, b - a }'
  fi
}
for img in "${images[@]}"; do
  for mode in lossless rate20; do
    oo=() ro=()
    [ "$mode" = rate20 ] && oo=(-r 20 -I) ro=(-rate 20)
    o=$(timed opj_compress -i "$img" -o "$tmp/o.j2k" -threads 1 ${oo[@]+"${oo[@]}"})
    r=$(timed "$tool" encode "$img" "$tmp/r.j2k" ${ro[@]+"${ro[@]}"})
    t=$(timed "$tool" encode "$img" "$tmp/t.j2k" -threads 2 ${ro[@]+"${ro[@]}"})
    cmp -s "$tmp/r.j2k" "$tmp/t.j2k" || { echo "rvtj2k: 2 threads wrote other bytes" >&2; exit 1; }
    awk -v o="$o" -v r="$r" -v t="$t" -v i="$(basename "$img" .ppm)" -v m="$mode" \
        -v so="$(stat -c %s "$tmp/o.j2k")" -v sr="$(stat -c %s "$tmp/r.j2k")" 'BEGIN {
      split(o, a, " "); split(r, b, " "); split(t, c, " ")
      printf "%-18s %-8s opj_compress cpu %6.2f s wall %6.2f s %9d B | rvtj2k cpu %6.2f s wall %6.2f s %9d B (cpu %.2fx) | 2 threads cpu %6.2f s wall %6.2f s (wall %.2fx of 1 thread)\n",
             i, m, a[1], a[2], so, b[1], b[2], sr, a[1] / (b[1] > 0 ? b[1] : 0.01), c[1], c[2], b[2] / (c[2] > 0 ? c[2] : 0.01) }'
  done
done
