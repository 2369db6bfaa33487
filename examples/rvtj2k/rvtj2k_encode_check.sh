#!/usr/bin/env bash
# rvtj2k's encoder against OpenJPEG: lossless files we write must decode
# with opj_decompress (and, where it reads them, with rvtj2k itself) to
# exactly the source: every code-block style 0..63 with several layers,
# odd sizes down to 1x1, grey and colour, 8 and 16 bits, .jp2, levels,
# code-block sizes, progression orders, SOP/EPH, tiles.  Unsupported requests must
# fail without writing a file.
#
#   examples/rvtj2k/rvtj2k_encode_check.sh RVTJ2K TESTDATA_DIR
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
  if [[ " $* " != *" -order "* && " $* " != *" -tiles "* ]]; then
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

# Tiles, whole and partial ones, at odd offsets.
check "$tmp/astro.ppm" $((512 * 512 * 3)) -tiles 100x77
check "$tmp/astro.ppm" $((512 * 512 * 3)) -tiles 37x300 -layers 3 -order RPCL -SOP -EPH -mode 7
check "$tmp/camera.pgm" $((512 * 512)) -tiles 3x200 -cblk 4x4
check "$tmp/crop.pgm" $((57 * 41)) -tiles 20x9 -levels 2 -order PCRL

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
check "$tmp/astro.ppm" $((512 * 512 * 3)) -threads 3 -layers 2

# Lossy: at the size opj_compress -r R -I gives, OpenJPEG decodes our file
# without complaint at a PSNR no more than 0.3 dB below its own.
psnr() {  # A B BYTES: PSNR of the 8-bit pixel bytes
  { cmp -l <(pixels "$1" "$3") <(pixels "$2" "$3") || true; } | awk -v n="$3" '
    function oct(s,  v, i) { v = 0; for (i = 1; i <= length(s); i++) v = v * 8 + substr(s, i, 1); return v }
    { d = oct($2) - oct($3); s += d * d }
    END { if (s == 0) print 99; else printf "%.3f\n", 10 * log(255 * 255 * n / s) / log(10) }'
}
psnr16() {  # A B BYTES: PSNR of 16-bit big-endian samples
  paste -d' ' <(pixels "$1" "$3" | od -v -An -tu2 --endian=big | tr -s ' ' '\n' | grep .) \
              <(pixels "$2" "$3" | od -v -An -tu2 --endian=big | tr -s ' ' '\n' | grep .) |
    awk '{ d = $1 - $2; s += d * d; n++ } END { if (s == 0) print 99; else printf "%.3f\n", 10 * log(65535 * 65535 * n / s) / log(10) }'
}
measure=psnr
lossy() {  # SRC BYTES R "OPJ OPTIONS" OUR OPTIONS...
  local src=$1 bytes=$2 r=$3 oo=$4 ext=${1##*.}
  shift 4
  n=$((n + 1))
  # shellcheck disable=SC2086
  opj_compress -i "$src" -o "$tmp/ref.j2k" -r "$r" -I $oo >/dev/null 2>&1
  opj_decompress -i "$tmp/ref.j2k" -o "$tmp/ref.$ext" >/dev/null 2>&1
  local size rate
  size=$(stat -c %s "$tmp/ref.j2k")
  rate=$(awk -v b="$bytes" -v s="$size" 'BEGIN { printf "%.6f", b / s }')
  rm -f "$tmp"/o.*
  if ! "$tool" encode "$src" "$tmp/o.j2k" -rate "$rate" "$@"; then
    echo "FAIL $(basename "$src") -rate $rate $*: rvtj2k refused"
    fail=1
    return
  fi
  # Threads share out rows, column strips and code-blocks: the bytes stay.
  if ! "$tool" encode "$src" "$tmp/t.j2k" -rate "$rate" "$@" -threads 3 || ! cmp -s "$tmp/o.j2k" "$tmp/t.j2k"; then
    echo "FAIL $(basename "$src") -rate $rate $*: other bytes with -threads 3"
    fail=1
  fi
  if opj_decompress -i "$tmp/o.j2k" -o "$tmp/o.$ext" 2>&1 | grep -qiE "warning|error"; then
    echo "FAIL $(basename "$src") -rate $rate $*: opj_decompress complains"
    fail=1
  fi
  local ours theirs
  ours=$($measure "$src" "$tmp/o.$ext" "$bytes")
  theirs=$($measure "$src" "$tmp/ref.$ext" "$bytes")
  if [ "$(stat -c %s "$tmp/o.j2k")" -gt "$size" ] || awk -v a="$ours" -v b="$theirs" 'BEGIN { exit !(a < b - 0.3) }'; then
    echo "FAIL $(basename "$src") -rate $rate $*: $(stat -c %s "$tmp/o.j2k") bytes at $ours dB, OpenJPEG $size at $theirs dB"
    fail=1
  fi
}
lossy "$tmp/camera.pgm" $((512 * 512)) 20 ""
lossy "$tmp/camera.pgm" $((512 * 512)) 60 "-n 4 -b 32,32 -M 5" -levels 3 -cblk 32x32 -mode 5
lossy "$tmp/astro.ppm" $((512 * 512 * 3)) 10 "-M 63" -mode 63
lossy "$tmp/astro.ppm" $((512 * 512 * 3)) 40 "-b 16,64 -M 18 -SOP -EPH" -cblk 16x64 -mode 18 -SOP -EPH
lossy "$tmp/astro.ppm" $((512 * 512 * 3)) 30 "-r 120,60,30" -layers 3 -mode 1
lossy "$tmp/crop.ppm" $((64 * 48 * 3)) 8 "-n 3 -M 41" -levels 2 -mode 41 -order RPCL
lossy "$tmp/astro.ppm" $((512 * 512 * 3)) 20 "-t 128,96 -M 4" -tiles 128x96 -mode 4
lossy "$tmp/camera.pgm" $((512 * 512)) 16 "-t 37,300 -n 6" -tiles 37x300 -layers 2
if command -v ffmpeg >/dev/null; then  # a photo scaled to 16 bits a sample
  ffmpeg -loglevel error -i "$data/coffee.png" -vf scale=300:200 -pix_fmt rgb48be "$tmp/c16.ppm"
  measure=psnr16
  lossy "$tmp/c16.ppm" $((300 * 200 * 6)) 8 "-M 3" -mode 3
  lossy "$tmp/c16.ppm" $((300 * 200 * 6)) 30 "-n 4" -levels 3
  measure=psnr
fi

# Refusals: a non-zero exit, one line, no file.
for bad in "-tiles 0x4" "-levels 7" "-mode 64" "-cblk 128x64" "-cblk 3x4" "-rate 0.5" "-order XYZ" "-bogus"; do
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
