#!/usr/bin/env bash
# rvtj2k's encoder against OpenJPEG: lossless files we write must decode
# with opj_decompress (and, where it reads them, with rvtj2k itself) to
# exactly the source: every code-block style 0..63 with several layers,
# odd sizes down to 1x1, grey and colour, 8 and 16 bits, .jp2, levels,
# code-block sizes, progression orders, SOP/EPH.  Unsupported requests must
# fail without writing a file.
#
#   examples/rvtj2k_encode_check.sh RVTJ2K TESTDATA_DIR
set -euo pipefail
tool=$1
data=$2
command -v opj_compress >/dev/null || { echo "opj_compress not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
n=0

# Pixel bytes of a PNM (the trailing width x height x channels x bytes).
pixels() { tail -c "$2" "$1"; }

# check SRC BYTES OPTS...: encode SRC, decode with OpenJPEG (and rvtj2k
# for LRCP code-streams), compare with SRC.
check() {
  local src=$1 bytes=$2 ext=${1##*.} out="$tmp/o.j2k"
  shift 2
  local opts=() a
  for a in "$@"; do
    if [ "$a" = -jp2 ]; then out="$tmp/o.jp2"; else opts+=("$a"); fi
  done
  n=$((n + 1))
  rm -f "$tmp"/o.*
  if ! "$tool" encode "$src" "$out" ${opts[@]+"${opts[@]}"}; then
    echo "FAIL $(basename "$src") $*: rvtj2k refused"
    fail=1
    return
  fi
  if opj_decompress -i "$out" -o "$tmp/o.$ext" 2>&1 | grep -qiE "warning|error"; then
    echo "FAIL $(basename "$src") $*: opj_decompress complains"
    fail=1
  fi
  if ! cmp -s <(pixels "$tmp/o.$ext" "$bytes") <(pixels "$src" "$bytes"); then
    echo "FAIL $(basename "$src") $*: OpenJPEG decodes other pixels"
    fail=1
  fi
  if [[ " $* " != *" -order "* ]]; then
    if ! "$tool" decode "$out" "$tmp/r.$ext" || ! cmp -s <(pixels "$tmp/r.$ext" "$bytes") <(pixels "$src" "$bytes"); then
      echo "FAIL $(basename "$src") $*: rvtj2k decodes other pixels"
      fail=1
    fi
  fi
}

# Sources: the photos through OpenJPEG's lossless path, crops of them.
opj_compress -i "$data/astronaut.png" -o "$tmp/a.j2k" >/dev/null 2>&1
opj_compress -i "$data/camera.png" -o "$tmp/c.j2k" >/dev/null 2>&1
opj_decompress -i "$tmp/c.j2k" -o "$tmp/camera.pgm" >/dev/null 2>&1
opj_decompress -i "$tmp/a.j2k" -o "$tmp/astro.ppm" >/dev/null 2>&1
crop() {  # crop J2K X0,Y0,X1,Y1 OUT
  opj_decompress -i "$1" -o "$3" -d "$2" >/dev/null 2>&1
}
crop "$tmp/a.j2k" 200,180,264,228 "$tmp/crop.ppm"
crop "$tmp/c.j2k" 100,100,157,141 "$tmp/crop.pgm"

for mode in $(seq 0 63); do
  check "$tmp/crop.ppm" $((64 * 48 * 3)) -mode "$mode" -cblk 16x16 -layers 3
done
for mode in 0 1 5 19 63; do
  check "$tmp/crop.pgm" $((57 * 41)) -mode "$mode" -cblk 8x8 -levels 3 -layers 2
done

check "$tmp/camera.pgm" $((512 * 512))
check "$tmp/astro.ppm" $((512 * 512 * 3)) -jp2
check "$tmp/astro.ppm" $((512 * 512 * 3)) -levels 0 -cblk 32x128
check "$tmp/camera.pgm" $((512 * 512)) -levels 9 -cblk 4x1024 -layers 4
check "$tmp/astro.ppm" $((512 * 512 * 3)) -cblk 64x32 -SOP -EPH -layers 2
for order in RLCP RPCL PCRL CPRL; do
  check "$tmp/crop.ppm" $((64 * 48 * 3)) -order "$order" -layers 3 -SOP -mode 5
done

# Odd sizes: the default levels shrink with the image.
for box in 0,0,1,17 0,0,17,1 3,5,4,6 10,10,13,19 0,0,130,3 7,9,40,74; do
  IFS=, read -r x0 y0 x1 y1 <<<"$box"
  w=$((x1 - x0)) h=$((y1 - y0))
  crop "$tmp/a.j2k" "$box" "$tmp/odd.ppm"
  crop "$tmp/c.j2k" "$box" "$tmp/odd.pgm"
  check "$tmp/odd.ppm" $((w * h * 3))
  check "$tmp/odd.pgm" $((w * h)) -mode 21 -cblk 4x4 -jp2
done

# 16 bits: photo bytes read as big-endian samples, and noise.
{ printf 'P5\n61 47\n65535\n'; pixels "$tmp/astro.ppm" $((61 * 47 * 2)); } >"$tmp/w16.pgm"
{ printf 'P6\n31 29\n65535\n'; head -c $((31 * 29 * 6)) /dev/urandom; } >"$tmp/w16.ppm"
check "$tmp/w16.pgm" $((61 * 47 * 2)) -mode 3 -layers 2
check "$tmp/w16.ppm" $((31 * 29 * 6)) -levels 3 -jp2
check "$tmp/w16.ppm" $((31 * 29 * 6)) -mode 60 -cblk 4x8

# Refusals: a non-zero exit, one line, no file.
for bad in "-tiles 8x8" "-levels 7" "-mode 64" "-cblk 128x64" "-cblk 3x4" "-rate 0.5" "-order XYZ" "-bogus"; do
  n=$((n + 1))
  rm -f "$tmp/bad.j2k"
  # shellcheck disable=SC2086
  if "$tool" encode "$tmp/crop.pgm" "$tmp/bad.j2k" $bad 2>"$tmp/err" || [ -e "$tmp/bad.j2k" ] ||
     [ "$(wc -l <"$tmp/err")" != 1 ]; then
    echo "FAIL $bad: accepted, wrote a file or said more than one line"
    fail=1
  fi
done
echo "rvtj2k encode: $n cases checked"
exit $fail
