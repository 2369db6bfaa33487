#!/usr/bin/env bash
# rvttex round trips: a test photo (odd size: edge tiles) encoded to every
# format the library encodes, at one thread and at three (the same file),
# must reach a floor of PSNR and read back from the DDS file to the same
# PSNR; formats whose encoder is not in the library yet must say so and
# fail.  ImageMagick (test-only), where installed, reads the DXT1/3/5 files
# we wrote to the RGB we decode.  The DDS seed files of the reader's fuzz
# target (every format, legacy and DX10 headers) decode.
#
#   examples/rvttex/rvttex_check.sh RVTTEX TESTDATA_DIR
set -euo pipefail
tool=$1
data=$2
seeds=$(cd "$(dirname "${BASH_SOURCE[0]}")/../../fuzz/corpus/dds_read_fuzzer" && pwd)
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
magick=$(command -v convert-im6.q16 || true)
fail=0
psnr() { sed -n 's/.*PSNR \([0-9.]*\) dB.*/\1/p' <<< "$1"; }
declare -A floor=([bc1]=34 [bc2]=34 [bc3]=34 [bc3ycocg]=40 [bc4]=42 [bc5]=42 [bc6h]=30 [bc6hs]=30 [bc7]=36)
for f in bc1 bc2 bc3 bc3ycocg bc4 bc5 bc6h bc6hs bc7; do
  if ! out=$("$tool" encode "$data/chelsea.png" "$tmp/$f.dds" -f "$f" 2>&1); then
    if [[ $out == *"not supported"* ]]; then echo "$f: $out"; continue; fi
    echo "FAIL $f: $out"; fail=1; continue
  fi
  echo "$out"
  db=$(psnr "$out")
  if ! awk -v a="$db" -v b="${floor[$f]}" 'BEGIN { exit !(a >= b) }'; then
    echo "FAIL $f: PSNR $db below ${floor[$f]}"; fail=1
  fi
  "$tool" encode "$data/chelsea.png" "$tmp/$f-t3.dds" -f "$f" -t 3 > /dev/null
  cmp -s "$tmp/$f.dds" "$tmp/$f-t3.dds" || { echo "FAIL $f: three threads wrote another file"; fail=1; }
  [[ $f == bc6h* ]] && continue
  back=$("$tool" decode "$tmp/$f.dds" "$tmp/$f.png" -t 2 -r "$data/chelsea.png")
  echo "$back"
  [[ $(psnr "$back") == "$db" ]] || { echo "FAIL $f: read back at $(psnr "$back") dB, not $db"; fail=1; }
  if [[ -n $magick && $f =~ ^bc[123]$ ]]; then
    "$magick" "$tmp/$f.dds" "$tmp/$f-im.png"
    cmp=$("$tool" compare "$tmp/$f.png" "$tmp/$f-im.png")
    echo "$f ImageMagick: $cmp"
    [[ $cmp == *"largest difference 0" ]] || { echo "FAIL $f: ImageMagick reads other colours"; fail=1; }
  fi
done
[[ -n $magick ]] || echo "ImageMagick not installed: its reading skipped"
for s in "$seeds"/*.dds; do
  ext=png
  [[ $s == *bc6h* ]] && ext=raw
  "$tool" decode "$s" "$tmp/seed.$ext" > /dev/null || { echo "FAIL: $(basename "$s") not decoded"; fail=1; }
done
echo "rvttex: $( ((fail)) && echo FAILED || echo passed)"
exit $fail
