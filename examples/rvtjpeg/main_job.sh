#!/usr/bin/env bash
# The main job of rvtjp, end to end: a baseline JPEG encoder and decoder whose
# pixel and entropy work is done by the library, on a photo that ships in
# testdata/, next to libjpeg-turbo; then the speed table on a 4K frame.
#
#   examples/rvtjpeg/main_job.sh [IMAGE]        (from the repository root)
#
# Builds what it needs into ./build (or $BUILD) first.  Needs the Debian
# packages cmake, g++, libhwy-dev, libpng-dev, libturbojpeg0-dev,
# libjpeg62-turbo-dev, googletest and libbenchmark-dev.
set -euo pipefail
cd "$(dirname "$0")/../.."
BUILD=${BUILD:-build}
IMAGE=${1:-testdata/astronaut.png}
OUT=${OUT:-out}

if [ ! -f "$BUILD/CMakeCache.txt" ]; then
  cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release > /dev/null
fi
cmake --build "$BUILD" -j"$(nproc)" --target rvtjpeg codec_bench > /dev/null
TOOL="$BUILD/examples/rvtjpeg"
mkdir -p "$OUT"
name=$(basename "${IMAGE%.*}")

echo "== encode and decode $IMAGE (quality 90, 4:2:0)"
"$TOOL" encode "$IMAGE" "$OUT/$name.jpg" -q 90 -s 420
"$TOOL" decode "$OUT/$name.jpg" "$OUT/$name.decoded.png"
echo "wrote $OUT/$name.jpg ($(wc -c < "$OUT/$name.jpg") bytes) and $OUT/$name.decoded.png"
echo
echo "== against libjpeg-turbo on the same photo"
"$TOOL" compare "$IMAGE" -q 90 -s 420 -o "$OUT"
echo
echo "== speed on a 3840x2160 frame tiled from testdata/"
"$BUILD/bench/codec_bench" --benchmark_min_time=0.5
