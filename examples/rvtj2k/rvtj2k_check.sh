#!/usr/bin/env bash
# rvtj2k's decoder against OpenJPEG (and Grok's encoder when installed):
# files opj_compress (grk_compress) writes must decode to what
# opj_decompress gives, exactly: reversible and 9/7 alike, at every depth
# (the float synthesis scales and lifts as OpenJPEG's does).
# Cases: grey and colour, 8/12/16 bits, odd and tiny sizes, 0..6 levels,
# code-block sizes and every style flag, layers, precincts, the five
# progressions and POC, SOP/EPH, tiles with image and tile offsets and
# tile-parts, ROI, -layers and -reduce, threads.
#
#   examples/rvtj2k/rvtj2k_check.sh RVTJ2K TESTDATA_DIR
set -euo pipefail
export LC_ALL=C
tool=$1
data=$2
command -v opj_compress >/dev/null || { echo "opj_compress not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
n=0

# Test images beside the photos: 16-bit and 12-bit grey, tiny ones.
opj_compress -i "$data/camera.png" -o "$tmp/cam.j2k" >/dev/null 2>&1
opj_decompress -i "$tmp/cam.j2k" -o "$tmp/cam.pgm" >/dev/null 2>&1
tail -c 262144 "$tmp/cam.pgm" > "$tmp/cam.raw"
body() { cat "$tmp/cam.raw"; }
{ printf 'P5\n512 512\n65535\n'; body | od -An -v -tu1 |
  awk '{for (i = 1; i <= NF; i++) { v = $i * 257 + (k++ * 7919) % 61; printf "%c%c", int(v / 256), v % 256 }}'; } \
  > "$tmp/c16.pgm"
{ printf 'P5\n117 75\n4095\n'; body | od -An -v -tu1 |
  awk '{for (i = 1; i <= NF; i++) { x = k % 512; y = int(k / 512); k++;
        if (x >= 50 && x < 167 && y >= 100 && y < 175) { v = $i * 16 + k % 16; printf "%c%c", int(v / 256), v % 256 } }}'; } \
  > "$tmp/o12.pgm"
{ printf 'P5\n1 17\n255\n'; head -c 17 "$tmp/cam.raw"; } > "$tmp/t1x17.pgm"
{ printf 'P5\n33 2\n255\n'; head -c 66 "$tmp/cam.raw"; } > "$tmp/t33x2.pgm"

# compare GOT WANT: the sample data (after each header) within the bounds.
compare() {
  local got=$1 want=$2 w h maxv ch bytes fmt
  read -r w h maxv < <(head -c 64 "$got" | awk 'NR==2{w=$1; h=$2} NR==3{print w, h, $1; exit}')
  ch=1
  [[ $(head -c 2 "$got") == P6 ]] && ch=3
  fmt=-tu1
  bytes=$(( w * h * ch ))
  if (( maxv > 255 )); then fmt="-tu2 --endian=big"; bytes=$(( bytes * 2 )); fi
  paste -d' ' <(tail -c "$bytes" "$got" | od -An -v $fmt | tr -s ' ' '\n' | grep -v '^$') \
              <(tail -c "$bytes" "$want" | od -An -v $fmt | tr -s ' ' '\n' | grep -v '^$') |
    awk '{ d = $1 - $2; if (d < 0) d = -d; if (d > m) m = d; if (d) c++; n++ }
         END { if (c) printf "  (%d of %d samples differ, at most by %d)\n", c, n, m
               exit (n == 0 || c > 0) }'
}

# check ENCODER SOURCE "ENCODER OPTIONS" ["DECODE OPTIONS"] (-r R / -l L for
# opj_decompress are mapped to -reduce / -layers)
check() {
  local enc=$1 src=$2 opts=$3 dopts=${4:-} ext=ppm ropts=""
  [[ $src == *.pgm || $src == */camera.png ]] && ext=pgm
  n=$((n + 1))
  case $enc in
    opj) opj_compress -i "$src" -o "$tmp/a.j2k" $opts >/dev/null 2>&1 || { echo "FAIL opj_compress $opts"; fail=1; return; } ;;
    grk) grk_compress -i "$src" -o "$tmp/a.j2k" $opts >/dev/null 2>&1 || { echo "FAIL grk_compress $opts"; fail=1; return; } ;;
  esac
  opj_decompress -i "$tmp/a.j2k" -o "$tmp/want.$ext" $dopts >/dev/null 2>&1
  [[ $dopts =~ -r\ ([0-9]+) ]] && ropts="-reduce ${BASH_REMATCH[1]}"
  [[ $dopts =~ -l\ ([0-9]+) ]] && ropts="$ropts -layers ${BASH_REMATCH[1]}"
  [[ $dopts =~ -threads\ ([0-9]+) ]] && ropts="$ropts -threads ${BASH_REMATCH[1]}"
  if ! "$tool" decode "$tmp/a.j2k" "$tmp/got.$ext" $ropts; then
    echo "FAIL $enc $(basename "$src") $opts $dopts: rvtj2k refused"
    fail=1
  elif ! compare "$tmp/got.$ext" "$tmp/want.$ext"; then
    echo "FAIL $enc $(basename "$src") $opts $dopts: samples differ from opj_decompress"
    fail=1
  fi
}

cam=$data/camera.png coffee=$data/coffee.png chelsea=$data/chelsea.png
# Reversible: levels, code-block sizes and styles, layers, SOP/EPH.
for opts in "" "-n 1" "-n 3 -b 32,32" "-n 7 -M 63" "-n 4 -b 16,64 -M 5" "-n 2 -b 4,4 -M 40" \
            "-r 40,10,1" "-SOP -EPH -M 17" "-n 5 -r 80,20,5,1 -M 3"; do
  check opj "$cam" "$opts"
done
check opj "$coffee" "-n 5 -r 80,20,5,1 -M 10 -SOP -EPH"
# Irreversible 9/7 with ICT, each style flag and some mixes.
for m in 0 1 2 4 8 16 32 21 42 63; do check opj "$cam" "-I -r 12,4 -M $m -b 32,32"; done
check opj "$coffee" "-I -r 20"
check opj "$chelsea" "-I -q 30,40 -n 6 -b 16,64"
check opj "$coffee" "-I -r 30 -n 1"
check opj "$cam" "-I -r 30 -n 7"
# Precincts and progressions, POC.
check opj "$coffee" "-c [64,64],[32,32] -p RPCL -I -r 10"
check opj "$coffee" "-p PCRL -r 20,5,1 -c [128,128]"
check opj "$coffee" "-p CPRL -r 20,5,1 -c [32,32],[64,64],[128,128] -SOP"
check opj "$coffee" "-p RLCP -r 20,5,1 -EPH"
check opj "$coffee" "-r 20,5,1 -POC T1=0,0,1,4,3,LRCP/T1=0,0,3,6,3,RPCL"
# Tiles, offsets, tile-parts, ROI.
check opj "$chelsea" "-t 100,70 -r 5"
check opj "$chelsea" "-t 100,70 -I -r 5 -p RPCL -c [32,32]"
check opj "$chelsea" "-d 13,7 -t 64,64 -T 5,3 -n 3"
check opj "$chelsea" "-d 13,7 -I -r 8 -n 4"
check opj "$chelsea" "-t 128,128 -TP R -r 10,3,1"
check opj "$chelsea" "-t 128,128 -TP C -r 10,3,1 -p CPRL"
check opj "$coffee" "-I -r 20 -ROI c=0,U=3"
check opj "$coffee" "-ROI c=1,U=5"
# Bit depths and sizes.
check opj "$tmp/c16.pgm" "-I -r 5"
check opj "$tmp/c16.pgm" "-n 4"
check opj "$tmp/o12.pgm" "-I -r 3 -n 3"
check opj "$tmp/o12.pgm" "-n 6 -b 4,4"
check opj "$tmp/t1x17.pgm" "-n 1"
check opj "$tmp/t33x2.pgm" "-n 1 -I"
# Decoding options.
check opj "$coffee" "-I -r 10" "-r 2"
check opj "$chelsea" "-t 100,100" "-r 1"
check opj "$coffee" "-r 40,10,1 -p RPCL -c [64,64]" "-l 2"
check opj "$coffee" "-I -r 40,10,1" "-l 1"
check opj "$coffee" "-I -r 10 -t 256,256" "-threads 2"
# Grok's encoder, judged against OpenJPEG's decoder.
if command -v grk_compress >/dev/null; then
  check grk "$cam" ""
  check grk "$coffee" "-I -r 20 -n 6"
  check grk "$chelsea" "-t 100,70 -p RPCL -c [64,64],[32,32] -r 20,5,1 -SOP -EPH"
  check grk "$coffee" "-I -r 10,5 -M 63 -b 32,32"
  check grk "$chelsea" "-d 13,7 -t 64,64 -T 5,3 -n 3 -I -r 10"
fi
# The PNG writer takes the decoder's planes, PNM its interleaved samples:
# both must hold the same image (re-encoded losslessly, the files agree).
for dopt in "" "-reduce 1"; do
  opj_compress -i "$chelsea" -o "$tmp/pp.j2k" -I -r 8 -t 100,70 >/dev/null 2>&1
  "$tool" decode "$tmp/pp.j2k" "$tmp/pp.png" $dopt && "$tool" decode "$tmp/pp.j2k" "$tmp/pp.ppm" $dopt &&
    "$tool" encode "$tmp/pp.png" "$tmp/pp1.j2k" && "$tool" encode "$tmp/pp.ppm" "$tmp/pp2.j2k" &&
    cmp -s "$tmp/pp1.j2k" "$tmp/pp2.j2k" || { echo "FAIL: PNG and PNM outputs differ ($dopt)"; fail=1; }
  n=$((n + 1))
done
echo "rvtj2k: $n files checked"
exit $fail
