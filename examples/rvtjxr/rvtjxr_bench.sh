#!/usr/bin/env bash
# rvtjxr decode against JxrDecApp on a 4K (3840 x 2160) photo: the
# astronaut photo mirrored to size, coded by JxrEncApp at quality 0.9
# (one-level overlap, frequency order) with 4:4:4, 4:2:0 and 4:2:2 chroma,
# and the camera photo the same size in grey.  Both decoders run
# single-threaded, writing PNM; CPU seconds (user + system) and wall
# seconds are printed with their ratio, each the best of RUNS runs
# (default 1; the two decoders alternate, so load changes hit both).
# The pixels must match.
#
#   examples/rvtjxr/rvtjxr_bench.sh RVTJXR TESTDATA_DIR [RUNS]
set -euo pipefail
tool=$1
data=$2
runs=${3:-1}
command -v JxrEncApp >/dev/null || { echo "JxrEncApp not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
"$tool" tile "$data/astronaut.png" "$tmp/big.ppm" 3840 2160
"$tool" tile "$data/camera.png" "$tmp/big.pgm" 3840 2160
cpu() {  # command...: prints "cpu wall" seconds
  /usr/bin/time -o "$tmp/time" -f "%U %S %e" "$@" >/dev/null 2>&1
  awk '{printf "%.3f %.3f\n", $1 + $2, $3}' "$tmp/time"
}
best() {  # "cpu wall" pairs on stdin: the smallest of each
  awk 'NR == 1 || $1 < c { c = $1 } NR == 1 || $2 < w { w = $2 } END { printf "%.3f %.3f\n", c, w }'
}
for chroma in 4:4:4 4:2:0 4:2:2 grey; do
  src=$tmp/big.ppm fmt=9 ext=ppm sub=()
  case $chroma in
    4:2:0) sub=(-d 1) ;;
    4:2:2) sub=(-d 2) ;;
    grey) src=$tmp/big.pgm fmt=2 ext=pgm ;;
  esac
  JxrEncApp -i "$src" -o "$tmp/big.jxr" -c $fmt -q 0.9 "${sub[@]}" >/dev/null
  : >"$tmp/theirs"
  : >"$tmp/ours"
  for ((i = 0; i < runs; ++i)); do
    cpu JxrDecApp -i "$tmp/big.jxr" -o "$tmp/want.$ext" -c $fmt >>"$tmp/theirs"
    cpu "$tool" decode "$tmp/big.jxr" "$tmp/got.$ext" >>"$tmp/ours"
  done
  read -r theirs theirsWall < <(best <"$tmp/theirs")
  read -r ours oursWall < <(best <"$tmp/ours")
  "$tool" compare "$tmp/got.$ext" "$tmp/want.$ext"
  label="RGB $chroma"
  [[ $chroma == grey ]] && label=grey
  echo "4K $label decode: rvtjxr ${ours} s CPU (${oursWall} s wall), JxrDecApp ${theirs} s CPU (${theirsWall} s wall)"
  awk -v a="$ours" -v b="$theirs" 'BEGIN { printf "speed-up over JxrDecApp: %.2fx\n", b / a }'
done
