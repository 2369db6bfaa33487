#!/usr/bin/env bash
# rvtjxr decode against JxrDecApp on a 4K (3840 x 2160) RGB photo: the
# astronaut photo mirrored to size, coded by JxrEncApp at quality 0.9
# (one-level overlap, frequency order), once with 4:4:4 chroma and once
# with 4:2:0.  Both decoders run single-threaded, once each, writing PPM;
# CPU seconds (user + system) and wall seconds are printed with their
# ratio.  The pixels must match.
#
#   examples/rvtjxr/rvtjxr_bench.sh RVTJXR TESTDATA_DIR
set -euo pipefail
tool=$1
data=$2
command -v JxrEncApp >/dev/null || { echo "JxrEncApp not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
"$tool" tile "$data/astronaut.png" "$tmp/big.ppm" 3840 2160
cpu() {  # command...: prints "cpu wall" seconds
  /usr/bin/time -o "$tmp/time" -f "%U %S %e" "$@" >/dev/null 2>&1
  awk '{printf "%.3f %.3f\n", $1 + $2, $3}' "$tmp/time"
}
for chroma in 4:4:4 4:2:0; do
  sub=()
  [[ $chroma == 4:2:0 ]] && sub=(-d 1)
  JxrEncApp -i "$tmp/big.ppm" -o "$tmp/big.jxr" -c 9 -q 0.9 "${sub[@]}" >/dev/null
  read -r theirs theirsWall < <(cpu JxrDecApp -i "$tmp/big.jxr" -o "$tmp/want.ppm" -c 9)
  read -r ours oursWall < <(cpu "$tool" decode "$tmp/big.jxr" "$tmp/got.ppm")
  "$tool" compare "$tmp/got.ppm" "$tmp/want.ppm"
  echo "4K RGB $chroma decode: rvtjxr ${ours} s CPU (${oursWall} s wall), JxrDecApp ${theirs} s CPU (${theirsWall} s wall)"
  awk -v a="$ours" -v b="$theirs" 'BEGIN { printf "speed-up over JxrDecApp: %.2fx\n", b / a }'
done
