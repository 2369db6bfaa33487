#!/usr/bin/env bash
# rvtjxr against jxrlib: files JxrEncApp writes from crops of the test
# photos (grey, RGB and BGR, 8 and 16 bits; 4:4:4, 4:2:2 and 4:2:0; lossless and lossy;
# overlap 0, 1, 2; frequency and spatial order; tiles; skipped HP and LP bands) must decode to the
# pixels JxrDecApp gives (planar alpha too, RGBA PNG against its RGBA TIFF);
# what rvtjxr does not support yet must be refused,
# never decoded wrongly.
#
#   examples/rvtjxr/rvtjxr_check.sh RVTJXR TESTDATA_DIR
set -uo pipefail
tool=$1
data=$2
command -v JxrEncApp >/dev/null || { echo "JxrEncApp not installed: skipped"; exit 0; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail=0
n=0
# crops: odd sizes keep the padding and partial macroblocks in play
"$tool" crop "$data/camera.png" "$tmp/grey.pgm" 200 152 || exit 1
"$tool" crop "$data/coffee.png" "$tmp/rgb.ppm" 184 136 || exit 1
"$tool" crop "$data/camera.png" "$tmp/grey16.pgm" 120 88 16 || exit 1
"$tool" crop "$data/coffee.png" "$tmp/rgb16.ppm" 104 72 16 || exit 1
ok=0
run16() {  # source, format, options: JxrDecApp's 16-bit PNM is little-endian
  local src=$1 fmt=$2
  shift 2
  n=$((n + 1))
  local ext=${src##*.}
  if ! JxrEncApp -i "$tmp/$src" -o "$tmp/a.jxr" -c "$fmt" "$@" >/dev/null 2>&1; then
    echo "JxrEncApp $src $* failed"
    fail=$((fail + 1))
    return
  fi
  JxrDecApp -i "$tmp/a.jxr" -o "$tmp/want.$ext" -c "$fmt" >/dev/null 2>&1
  if ! "$tool" decode "$tmp/a.jxr" "$tmp/got.$ext" || ! "$tool" compare-le "$tmp/got.$ext" "$tmp/want.$ext"; then
    echo "FAIL $src $*: not the pixels JxrDecApp gives"
    fail=$((fail + 1))
    return
  fi
  ok=$((ok + 1))
}
run() {  # source, JxrEncApp -c format, options...
  local src=$1 fmt=$2
  shift 2
  n=$((n + 1))
  local ext=${src##*.}
  if ! JxrEncApp -i "$tmp/$src" -o "$tmp/a.jxr" -c "$fmt" "$@" >/dev/null 2>&1; then
    echo "JxrEncApp $src $* failed"
    fail=$((fail + 1))
    return
  fi
  # BMP sources are compared as RGB
  [[ $ext == bmp ]] && ext=ppm && fmt=9
  JxrDecApp -i "$tmp/a.jxr" -o "$tmp/want.$ext" -c "$fmt" >/dev/null 2>&1
  if ! "$tool" decode "$tmp/a.jxr" "$tmp/got.$ext"; then
    echo "FAIL $src $*: rvtjxr refused"
    fail=$((fail + 1))
    return
  fi
  if ! "$tool" compare "$tmp/got.$ext" "$tmp/want.$ext"; then
    echo "FAIL $src $*: pixels differ from JxrDecApp"
    fail=$((fail + 1))
    return
  fi
  ok=$((ok + 1))
}
refused() {  # source, format, options: rvtjxr must refuse the file
  local src=$1 fmt=$2
  shift 2
  JxrEncApp -i "$tmp/$src" -o "$tmp/a.jxr" -c "$fmt" "$@" >/dev/null 2>&1 || return
  if "$tool" decode "$tmp/a.jxr" "$tmp/got.x" 2>/dev/null; then
    echo "FAIL $src $*: decoded a file it does not support"
    fail=$((fail + 1))
  else
    ok=$((ok + 1))
  fi
}
for q in 1 5 30 90; do
  for l in 0 1 2; do
    run grey.pgm 2 -q "$q" -l "$l"
    run grey.pgm 2 -q "$q" -l "$l" -f
  done
done
run grey.pgm 2 -q 1 -l 1 -U 2 3
run grey.pgm 2 -q 40 -l 2 -U 3 2 -f
run grey.pgm 2 -q 20 -l 2 -s 2
run grey.pgm 2 -q 20 -l 0 -s 3 -f
for q in 1 8 40; do
  for l in 0 1 2; do
    run rgb.ppm 9 -q "$q" -l "$l"
    run rgb.ppm 9 -q "$q" -l "$l" -f
  done
done
run rgb.ppm 9 -q 12 -l 1 -U 2 3
run rgb.ppm 9 -q 50 -l 2 -U 3 2 -f
run rgb.ppm 9 -q 20 -l 2 -s 2
run rgb.ppm 9 -q 20 -l 0 -s 3 -f
# BGR: JxrDecApp writes the BMP from a lossless RGB file
JxrEncApp -i "$tmp/rgb.ppm" -o "$tmp/rgb.jxr" -c 9 >/dev/null 2>&1 &&
  JxrDecApp -i "$tmp/rgb.jxr" -o "$tmp/bgr.bmp" -c 0 >/dev/null 2>&1 || exit 1
run bgr.bmp 0 -q 1 -l 1
run bgr.bmp 0 -q 25 -l 2 -f
run bgr.bmp 0 -q 12 -l 2 -d 1
# trimmed flexbits, and no flexbits at all
run grey.pgm 2 -q 10 -l 1 -F 4
run grey.pgm 2 -q 6 -l 0 -F 1 -f
run grey.pgm 2 -q 20 -l 1 -s 1
run rgb.ppm 9 -q 10 -l 2 -F 8 -f
run rgb.ppm 9 -q 12 -l 1 -F 3 -U 2 2
run rgb.ppm 9 -q 20 -l 0 -s 1 -f
# 16-bit grey and 48-bit RGB
run16 grey16.pgm 3 -q 1 -l 0
run16 grey16.pgm 3 -q 10 -l 1
run16 grey16.pgm 3 -q 40 -l 2 -f -U 2 2
run16 rgb16.ppm 10 -q 1 -l 1 -f
run16 rgb16.ppm 10 -q 12 -l 2
run16 rgb16.ppm 10 -q 30 -l 0 -F 2
# 4:2:0 (-d 1) and 4:2:2 (-d 2) from RGB: chroma at half resolution, up-sampled
# to RGB as JxrDecApp does (JxrEncApp writes these at 8 bits only)
"$tool" crop "$data/chelsea.png" "$tmp/odd.ppm" 61 37 || exit 1
"$tool" crop "$data/chelsea.png" "$tmp/thin.ppm" 13 40 || exit 1
"$tool" crop "$data/chelsea.png" "$tmp/flat.ppm" 50 9 || exit 1
for d in 1 2; do
  for q in 1 8 40; do
    for l in 0 1 2; do
      run rgb.ppm 9 -d "$d" -q "$q" -l "$l"
    done
  done
  run rgb.ppm 9 -d "$d" -q 8 -l 1 -f
  run rgb.ppm 9 -d "$d" -q 40 -l 2 -f
  run rgb.ppm 9 -d "$d" -q 12 -l 2 -U 2 3
  run rgb.ppm 9 -d "$d" -q 30 -l 1 -U 3 2 -f
  run rgb.ppm 9 -d "$d" -q 10 -l 2 -F 4
  run rgb.ppm 9 -d "$d" -q 20 -l 1 -s 1
  run rgb.ppm 9 -d "$d" -q 20 -l 2 -s 2
  run rgb.ppm 9 -d "$d" -q 20 -l 0 -s 3 -f
  run odd.ppm 9 -d "$d" -q 5 -l 2
  run odd.ppm 9 -d "$d" -q 1 -l 1 -f
  run odd.ppm 9 -d "$d" -q 50 -l 2 -U 2 2
  run thin.ppm 9 -d "$d" -q 20 -l 1
  run flat.ppm 9 -d "$d" -q 20 -l 2
done
# alpha: an RGBA TIFF (JxrEncApp's input; JxrDecApp writes one too)
python3 - "$tmp/rgba.tif" <<'EOF'
import struct, sys
w, h = 61, 37
px = bytes(v & 255 for y in range(h) for x in range(w) for v in (x * 4, y * 7, x * y, x * 3 + y * 5))
tags = [(256, 3, 1, w), (257, 3, 1, h), (258, 3, 4, 146), (259, 3, 1, 1), (262, 3, 1, 2), (273, 4, 1, 154),
        (277, 3, 1, 4), (278, 3, 1, h), (279, 4, 1, len(px)), (284, 3, 1, 1), (338, 3, 1, 2)]
out = b'II*\x00' + struct.pack('<IH', 8, len(tags))
for t, ty, n, v in tags:
    out += struct.pack('<HHIHH', t, ty, n, v, 0) if ty == 3 and n == 1 else struct.pack('<HHII', t, ty, n, v)
out += struct.pack('<I4H', 0, 8, 8, 8, 8) + px
open(sys.argv[1], 'wb').write(out)
EOF
cat > "$tmp/cmpa.py" <<'EOF'
# cmpa.py A.png B.tif: exit 0 when the 8-bit RGBA PNG A (as rvtjxr writes
# it) and the uncompressed RGBA TIFF B hold the same samples
import struct, sys, zlib
def png(path):
    d = open(path, 'rb').read()
    i, idat, w = 8, b'', 0
    while i < len(d):
        n, t = struct.unpack('>I4s', d[i:i + 8])
        c = d[i + 8:i + 8 + n]
        if t == b'IHDR':
            w, h, depth, ctype = struct.unpack('>IIBB', c[:10])
            assert depth == 8 and ctype == 6
        if t == b'IDAT': idat += c
        i += 12 + n
    raw, bpp, stride = zlib.decompress(idat), 4, w * 4
    out, prev = bytearray(), bytearray(stride)
    for y in range(h):
        f, line = raw[y * (stride + 1)], bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for x in range(stride):
            a = line[x - bpp] if x >= bpp else 0
            b, c = prev[x], prev[x - bpp] if x >= bpp else 0
            if f == 1: line[x] = (line[x] + a) & 255
            elif f == 2: line[x] = (line[x] + b) & 255
            elif f == 3: line[x] = (line[x] + (a + b) // 2) & 255
            elif f == 4:
                p = a + b - c; pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[x] = (line[x] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        out += line
        prev = line
    return w, h, bytes(out)
def tif(path):
    d = open(path, 'rb').read()
    assert d[:2] == b'II'
    ifd = struct.unpack('<I', d[4:8])[0]
    n = struct.unpack('<H', d[ifd:ifd + 2])[0]
    tags = {}
    for k in range(n):
        t, ty, cnt, v = struct.unpack('<HHII', d[ifd + 2 + 12 * k:ifd + 14 + 12 * k])
        if ty == 3 and cnt == 1: v &= 0xFFFF
        tags[t] = (ty, cnt, v)
    w, h = tags[256][2], tags[257][2]
    def arr(t):
        ty, cnt, v = tags[t]
        if cnt == 1: return [v]
        sz = 2 if ty == 3 else 4
        return list(struct.unpack('<%d%s' % (cnt, 'H' if sz == 2 else 'I'), d[v:v + sz * cnt]))
    data = b''.join(d[o:o + c] for o, c in zip(arr(273), arr(279)))
    assert tags[277][2] == 4 and tags.get(259, (0, 0, 1))[2] == 1
    return w, h, data[:w * h * 4]
a, b = png(sys.argv[1]), tif(sys.argv[2])
sys.exit(0 if a == b else 1)
EOF
runa() {  # JxrEncApp options for the RGBA TIFF: rvtjxr's RGBA PNG must hold JxrDecApp's samples
  n=$((n + 1))
  if ! JxrEncApp -i "$tmp/rgba.tif" -o "$tmp/a.jxr" -c 22 "$@" >/dev/null 2>&1 ||
     ! JxrDecApp -i "$tmp/a.jxr" -o "$tmp/want.tif" -c 22 >/dev/null 2>&1; then
    echo "JxrEncApp/JxrDecApp rgba.tif $* failed"
    fail=$((fail + 1))
    return
  fi
  if ! "$tool" decode "$tmp/a.jxr" "$tmp/got.png" || ! python3 "$tmp/cmpa.py" "$tmp/got.png" "$tmp/want.tif"; then
    echo "FAIL rgba.tif $*: not the samples JxrDecApp gives"
    fail=$((fail + 1))
    return
  fi
  ok=$((ok + 1))
}
# planar alpha (its byte count runs past the file's end as JxrEncApp writes it)
runa -a 2 -q 1
python3 "$tmp/cmpa.py" "$tmp/got.png" "$tmp/rgba.tif" || { echo "FAIL lossless RGBA is not the source"; fail=$((fail + 1)); }
runa -a 2 -q 10 -Q 20 -l 2
runa -a 2 -q 30 -Q 1 -l 0 -f
runa -a 2 -q 12 -d 1 -l 1
runa -a 2 -q 8 -U 2 2
# alpha inside the colour image: refused
refused rgba.tif 22 -a 3 -q 1
echo "$ok passed, $fail failed"
[[ $fail == 0 ]]
