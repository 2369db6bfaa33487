#!/usr/bin/env bash
# rvtjxr encode against jxrlib: files rvtjxr writes from crops of the test
# photos must be read by JxrDecApp; lossless ones (QP 1; overlap 0, 1, 2;
# frequency and spatial order; tiles; 8- and 16-bit grey and RGB) to
# exactly the source, lossy ones to what rvtjxr's own decoder gives, at a
# size within 2% of JxrEncApp's at the same QP; 4:2:2 and 4:2:0 ones also
# within 0.5 dB of JxrEncApp's PSNR.  What the encoder does not support
# (bad options) must fail with no file written.
#
#   examples/rvtjxr/rvtjxr_encode_check.sh RVTJXR TESTDATA_DIR
set -uo pipefail
tool=$1
data=$2
command -v JxrDecApp >/dev/null || { echo "JxrDecApp not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
ok=0
# crops: odd sizes keep the padding and partial macroblocks in play
"$tool" crop "$data/camera.png" "$tmp/grey.pgm" 200 152 || exit 1
"$tool" crop "$data/coffee.png" "$tmp/rgb.ppm" 184 136 || exit 1
"$tool" crop "$data/coffee.png" "$tmp/rgb16.ppm" 75 41 16 || exit 1
# a 16-bit grey ramp with noise in the low byte
python3 - "$tmp/grey16.pgm" <<'EOF'
import sys
w, h = 75, 41
px = b''.join((((x * 811 + y * 1499) ^ (x * y * 7)) & 0xFFFF).to_bytes(2, 'big') for y in range(h) for x in range(w))
open(sys.argv[1], 'wb').write(b'P5\n%d %d\n65535\n' % (w, h) + px)
EOF

lossless() {  # source, JxrDecApp -c format, encode options...
  local src=$1 fmt=$2
  shift 2
  if ! "$tool" encode "$tmp/$src" "$tmp/a.jxr" "$@"; then
    echo "FAIL $src $*: rvtjxr refused"
    fail=$((fail + 1))
    return
  fi
  if ! JxrDecApp -i "$tmp/a.jxr" -o "$tmp/got.pnm" -c "$fmt" >/dev/null 2>&1; then
    echo "FAIL $src $*: JxrDecApp refused the file"
    fail=$((fail + 1))
    return
  fi
  # JxrDecApp writes 16-bit samples little-endian (and its own header):
  # compare the samples
  if ! python3 - "$tmp/$src" "$tmp/got.pnm" "$fmt" <<'EOF'; then
import sys
def body(path):
    d = open(path, 'rb').read()
    t, i = [], 0
    while len(t) < 4:
        while d[i:i + 1].isspace(): i += 1
        j = i
        while not d[j:j + 1].isspace(): j += 1
        t.append(d[i:j]); i = j
    return int(t[1]), int(t[2]), int(t[3]), d[i + 1:]
w, h, m, a = body(sys.argv[1])
_, _, _, b = body(sys.argv[2])
if m > 255:
    b = bytes(b[k ^ 1] for k in range(len(b)))
sys.exit(0 if a == b[:len(a)] and len(b) == len(a) else 1)
EOF
    echo "FAIL $src $*: JxrDecApp does not give the source back"
    fail=$((fail + 1))
    return
  fi
  if [[ $fmt == 2 || $fmt == 9 ]]; then
    local e=pgm
    [[ $fmt == 9 ]] && e=ppm
    if ! "$tool" decode "$tmp/a.jxr" "$tmp/own.$e" || ! "$tool" compare "$tmp/own.$e" "$tmp/$src"; then
      echo "FAIL $src $*: rvtjxr's decoder does not give the source back"
      fail=$((fail + 1))
      return
    fi
  fi
  ok=$((ok + 1))
}

lossy() {  # 8-bit grey or RGB source, QP, encode options...
  local src=$1 q=$2 fmt=2 e=pgm
  shift 2
  if [[ $src == *.ppm ]]; then fmt=9 e=ppm; fi
  if ! "$tool" encode "$tmp/$src" "$tmp/a.jxr" -q "$q" "$@" ||
     ! JxrDecApp -i "$tmp/a.jxr" -o "$tmp/want.$e" -c $fmt >/dev/null 2>&1 ||
     ! "$tool" decode "$tmp/a.jxr" "$tmp/got.$e" || ! "$tool" compare "$tmp/got.$e" "$tmp/want.$e"; then
    echo "FAIL $src -q $q $*: not read as rvtjxr reads it"
    fail=$((fail + 1))
    return
  fi
  if command -v JxrEncApp >/dev/null && [[ $# == 0 ]]; then
    JxrEncApp -i "$tmp/$src" -o "$tmp/b.jxr" -c $fmt -q "$q" >/dev/null 2>&1
    local ours theirs
    ours=$(stat -c %s "$tmp/a.jxr")
    theirs=$(stat -c %s "$tmp/b.jxr")
    if ((ours * 100 > theirs * 102 + 200)); then
      echo "FAIL $src -q $q: $ours bytes, JxrEncApp $theirs"
      fail=$((fail + 1))
      return
    fi
  fi
  ok=$((ok + 1))
}

psnr() {  # 8-bit PNMs A B: the PSNR of B against A, in dB
  python3 - "$1" "$2" <<'EOF'
import math, sys
def body(path):
    d = open(path, 'rb').read()
    t, i = [], 0
    while len(t) < 4:
        while d[i:i + 1].isspace(): i += 1
        j = i
        while not d[j:j + 1].isspace(): j += 1
        t.append(d[i:j]); i = j
    return d[i + 1:]
a, b = body(sys.argv[1]), body(sys.argv[2])
se = sum((x - y) ** 2 for x, y in zip(a, b))
print('%.3f' % (10 * math.log10(255 * 255 * len(a) / max(se, 1))))
EOF
}

chroma() {  # RGB source, QP, 422|420, encode options...
  local src=$1 q=$2 c=$3
  shift 3
  if ! "$tool" encode "$tmp/$src" "$tmp/a.jxr" -q "$q" -chroma "$c" "$@" ||
     ! JxrDecApp -i "$tmp/a.jxr" -o "$tmp/want.ppm" -c 9 >/dev/null 2>&1 ||
     ! "$tool" decode "$tmp/a.jxr" "$tmp/got.ppm" || ! "$tool" compare "$tmp/got.ppm" "$tmp/want.ppm"; then
    echo "FAIL $src -q $q -chroma $c $*: not read as rvtjxr reads it"
    fail=$((fail + 1))
    return
  fi
  if command -v JxrEncApp >/dev/null && [[ $# == 0 ]]; then
    local d=1
    [[ $c == 422 ]] && d=2
    JxrEncApp -i "$tmp/$src" -o "$tmp/b.jxr" -c 9 -d $d -q "$q" >/dev/null 2>&1
    JxrDecApp -i "$tmp/b.jxr" -o "$tmp/theirs.ppm" -c 9 >/dev/null 2>&1
    local ours theirs po pt
    ours=$(stat -c %s "$tmp/a.jxr")
    theirs=$(stat -c %s "$tmp/b.jxr")
    po=$(psnr "$tmp/$src" "$tmp/got.ppm")
    pt=$(psnr "$tmp/$src" "$tmp/theirs.ppm")
    if ((ours * 100 > theirs * 102 + 200)) || python3 -c "import sys; sys.exit(0 if $po < $pt - 0.5 else 1)"; then
      echo "FAIL $src -q $q -chroma $c: $ours bytes $po dB, JxrEncApp $theirs bytes $pt dB"
      fail=$((fail + 1))
      return
    fi
  fi
  ok=$((ok + 1))
}

refused() {  # source, encode options: must fail and leave no file
  local src=$1
  shift
  rm -f "$tmp/r.jxr"
  if "$tool" encode "$tmp/$src" "$tmp/r.jxr" "$@" 2>/dev/null || [[ -e $tmp/r.jxr ]]; then
    echo "FAIL $src $*: encoded what it does not support"
    fail=$((fail + 1))
  else
    ok=$((ok + 1))
  fi
}

for l in 0 1 2; do
  lossless grey.pgm 2 -overlap "$l"
  lossless grey.pgm 2 -overlap "$l" -spatial
  lossless grey.pgm 2 -overlap "$l" -tiles 3x2
  lossless grey16.pgm 3 -overlap "$l"
done
for l in 0 1 2; do
  lossless rgb.ppm 9 -overlap "$l"
  lossless rgb.ppm 9 -overlap "$l" -spatial -tiles 2x3
done
lossless rgb16.ppm 10 -overlap 1
lossless rgb16.ppm 10 -overlap 2 -spatial -tiles 2x2
lossless grey.pgm 2 -spatial -tiles 13x1
lossless grey16.pgm 3 -spatial -tiles 2x3
for q in 5 30 90 200; do
  lossy grey.pgm "$q"
  lossy grey.pgm "$q" -overlap 0 -spatial
  lossy grey.pgm "$q" -overlap 2 -tiles 2x2
  lossy rgb.ppm "$q"
  lossy rgb.ppm "$q" -overlap 0 -spatial -tiles 3x2
done
"$tool" crop "$data/chelsea.png" "$tmp/odd.ppm" 61 37 || exit 1
"$tool" crop "$data/chelsea.png" "$tmp/thin.ppm" 13 40 || exit 1
for c in 422 420; do
  for q in 1 5 30 90; do
    chroma rgb.ppm "$q" "$c"
  done
  chroma odd.ppm 12 "$c"
  chroma rgb.ppm 1 "$c" -overlap 0 -spatial -tiles 3x2
  chroma rgb.ppm 20 "$c" -overlap 2 -tiles 2x2
  chroma rgb.ppm 40 "$c" -overlap 2 -spatial
  chroma odd.ppm 8 "$c" -overlap 2 -tiles 2x2
  chroma thin.ppm 10 "$c" -overlap 1
  refused thin.ppm -chroma "$c" -overlap 2
done
refused rgb.ppm -chroma 411
refused grey.pgm -q 0
refused grey.pgm -overlap 3
refused grey.pgm -tiles 14x1
refused grey.pgm -tiles 2
echo "$ok passed, $fail failed"
[[ $fail == 0 ]]
