#!/usr/bin/env bash
# rvtj2k against OpenJPEG: lossless files that opj_compress writes from the
# test photos (grey and colour; levels, code-block sizes and styles, layers,
# SOP/EPH, odd sizes) must decode to the pixels opj_decompress gives.
#
#   examples/rvtj2k_check.sh RVTJ2K TESTDATA_DIR
set -euo pipefail
tool=$1
data=$2
command -v opj_compress >/dev/null || { echo "opj_compress not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
n=0
for img in camera.png coffee.png chelsea.png; do
  for opts in "" "-n 1" "-n 3 -b 32,32" "-n 6 -M 63" "-n 4 -b 16,64 -M 5" "-n 2 -b 4,4 -M 40" \
              "-r 40,10,1" "-SOP -EPH -M 17" "-n 5 -r 80,20,5,1 -M 3"; do
    n=$((n + 1))
    opj_compress -i "$data/$img" -o "$tmp/a.j2k" $opts >/dev/null 2>&1 || { echo "opj_compress $opts failed"; fail=1; continue; }
    ext=pgm
    [[ $img == camera.png ]] || ext=ppm
    opj_decompress -i "$tmp/a.j2k" -o "$tmp/want.$ext" >/dev/null 2>&1
    if ! "$tool" decode "$tmp/a.j2k" "$tmp/got.$ext"; then
      echo "FAIL $img $opts: rvtj2k refused"
      fail=1
      continue
    fi
    bytes=$(( $(stat -c %s "$tmp/got.$ext") - $(head -c 64 "$tmp/got.$ext" | awk 'NR<=3{s+=length($0)+1} END{print s}') ))
    if ! cmp -s <(tail -c "$bytes" "$tmp/got.$ext") <(tail -c "$bytes" "$tmp/want.$ext"); then
      echo "FAIL $img $opts: pixels differ from opj_decompress"
      fail=1
    fi
  done
done
echo "rvtj2k: $n files checked"
exit $fail
