#!/usr/bin/env bash
# Encode speed of rvtjxr against JxrEncApp (single-threaded, as both are),
# one run each, on a 4K frame (a test photo scaled by ffmpeg, else the
# photos as they are): grey lossless and at QP 30, RGB 4:4:4 and 4:2:0 at
# QP 30.  Times are seconds, CPU (user + system) and wall; ratios are
# JxrEncApp's time over rvtjxr's (above 1: rvtjxr faster).  A second
# rvtjxr binary (an earlier build) gets its own columns, measured in the
# same run, and both then encode crops of the test photos (sizes off the
# macroblock grid, one and two macroblocks wide and high; grey, RGB 4:4:4,
# 4:2:2, 4:2:0, 8 and 16 bits) under every combination of QP 1/30, overlap
# 0/1/2, tilings and both orders: the files must be the same bytes.
#
#   examples/rvtjxr/rvtjxr_encode_bench.sh RVTJXR TESTDATA_DIR [RVTJXR_BEFORE]
set -euo pipefail
tool=$1
data=$2
before=${3:-}
command -v JxrEncApp >/dev/null || { echo "JxrEncApp not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
grey=() rgb=()
if command -v ffmpeg >/dev/null; then
  ffmpeg -loglevel error -i "$data/retina.jpg" -vf scale=3840:2160,format=gray "$tmp/4k.pgm"
  ffmpeg -loglevel error -i "$data/retina.jpg" -vf scale=3840:2160,format=rgb24 "$tmp/4k.ppm"
  grey+=("$tmp/4k.pgm")
  rgb+=("$tmp/4k.ppm")
fi
for f in retina hubble_deep_field; do
  djpeg -grayscale -pnm "$data/$f.jpg" >"$tmp/$f.pgm" 2>/dev/null && grey+=("$tmp/$f.pgm")
done
djpeg -pnm "$data/retina.jpg" >"$tmp/retina.ppm" 2>/dev/null && rgb+=("$tmp/retina.ppm")

# "wall cpu" seconds of a command, its output discarded
timed() {
  local TIMEFORMAT='%R %U %S' t
  t=$({ time "$@" >/dev/null 2>&1; } 2>&1)
  awk '{ printf "%.3f %.3f", $1, $2 + $3 }' <<<"$t"
}
row() {  # label, JxrEncApp args, input, rvtjxr options
  local label=$1 theirs=$2 in=$3 ours=$4 j r b=""
  j=$(timed JxrEncApp $theirs -o "$tmp/o.jxr")
  r=$(timed "$tool" encode "$in" "$tmp/r.jxr" $ours)
  local same=""
  if [[ -n $before ]]; then
    b=$(timed "$before" encode "$in" "$tmp/b.jxr" $ours)
    same=differ
    cmp -s "$tmp/b.jxr" "$tmp/r.jxr" && same="same bytes"
  fi
  awk -v l="$label" -v j="$j" -v r="$r" -v b="$b" -v same="$same" -v so="$(stat -c %s "$tmp/o.jxr")" \
      -v sr="$(stat -c %s "$tmp/r.jxr")" 'BEGIN {
    split(j, J, " "); split(r, R, " ");
    printf "%-26s JxrEncApp cpu %6.3f wall %6.3f %9d B | rvtjxr cpu %6.3f wall %6.3f %9d B (cpu %.2fx, wall %.2fx)",
           l, J[2], J[1], so, R[2], R[1], sr, J[2] / R[2], J[1] / R[1]
    if (b != "") { split(b, B, " "); printf " | before cpu %6.3f wall %6.3f (cpu %.2fx), %s", B[2], B[1], J[2] / B[2], same }
    printf "\n" }'
}
for img in "${grey[@]}"; do
  for q in 1 30; do
    row "$(basename "$img" .pgm) grey QP $q" "-i $img -c 2 -q $q" "$img" "-q $q"
  done
done
for img in "${rgb[@]}"; do
  for c in 444 420; do
    d=3
    [[ $c == 420 ]] && d=1
    row "$(basename "$img" .ppm) RGB $c QP 30" "-i $img -c 9 -d $d -q 30" "$img" "-q 30 -chroma $c"
  done
done

[[ -z $before ]] && exit 0
n=0 differ=0
crops=()
for s in "16 16" "17 9" "31 33" "47 18" "33 100" "100 17" "129 77"; do
  set -- $s
  "$before" crop "$data/camera.png" "$tmp/g_$1x$2.pgm" $1 $2 && crops+=("$tmp/g_$1x$2.pgm")
  "$before" crop "$data/coffee.png" "$tmp/c_$1x$2.ppm" $1 $2 && crops+=("$tmp/c_$1x$2.ppm")
done
"$before" crop "$data/coffee.png" "$tmp/c16_75x41.ppm" 75 41 16 && crops+=("$tmp/c16_75x41.ppm")
"$before" crop "$data/camera.png" "$tmp/g16_75x41.pgm" 75 41 16 && crops+=("$tmp/g16_75x41.pgm")
for f in "${crops[@]}"; do
  b=$(basename "$f")
  dims=${b#*_}; dims=${dims%.*}; w=${dims%x*}; h=${dims#*x}
  chromas="-"; [[ $f == *.ppm ]] && chromas="444 422 420"
  for c in $chromas; do
    for q in 1 30; do
      for o in 0 1 2; do
        for t in 1x1 2x1 1x2 2x3; do
          (( (w + 15) / 16 < ${t%x*} || (h + 15) / 16 < ${t#*x} )) && continue
          for sp in "" -spatial; do
            opts="-q $q -overlap $o -tiles $t $sp"
            [[ $c != - ]] && opts="$opts -chroma $c"
            ra=0 rb=0
            "$before" encode "$f" "$tmp/x.jxr" $opts 2>/dev/null || ra=$?
            "$tool" encode "$f" "$tmp/y.jxr" $opts 2>/dev/null || rb=$?
            n=$((n + 1))
            if [[ $ra != "$rb" ]] || { [[ $ra == 0 ]] && ! cmp -s "$tmp/x.jxr" "$tmp/y.jxr"; }; then
              echo "DIFFER $b $opts (exit $ra, $rb)"
              differ=$((differ + 1))
            fi
          done
        done
      done
    done
  done
done
echo "byte comparison with the earlier build: $n encodes, $differ differ"
[[ $differ == 0 ]]
