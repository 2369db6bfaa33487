#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole suite: the release
# build with every test and the install check, then an ASan+UBSan build of
# the library and its tests, the race check of the threaded kernels under
# ThreadSanitizer, the fuzz pass, and the check that the builds
# used nothing scripts/deps.sh does not install.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)
scripts/deps.sh

# A compiler cache, when there is one, makes a rerun cheap.
cache=()
if command -v ccache >/dev/null; then
  cache=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi

cmake -S . -B build -DCMAKE_BUILD_TYPE=Release "${cache[@]}" >/dev/null
cmake --build build -j"$jobs"
ctest --test-dir build -j"$jobs" --output-on-failure

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRVT_SANITIZE=ON \
  -DRVT_BUILD_BENCH=OFF -DRVT_BUILD_EXAMPLES=OFF "${cache[@]}" >/dev/null
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp \
  ctest --test-dir build-asan -j"$jobs" --output-on-failure

# Races: the threaded kernels (2 and 4 threads, several callers at once)
# and the Huffman coders under ThreadSanitizer with OpenMP's Archer tool;
# builds only what it runs (about two minutes on two cores).
tests/tsan/run.sh "$PWD/build-tsan"

# Hostile input: the bitstream readers under libFuzzer with ASan+UBSan, about
# two and a half minutes in all.
builds=(build build-asan build-tsan)
if [ -x fuzz/build_and_run.sh ]; then
  RVT_FUZZ_DIR=$PWD/build-fuzz fuzz/build_and_run.sh 150
  builds+=(build-fuzz)
fi

# Nothing the builds used may come from outside scripts/deps.sh's packages.
scripts/check_deps.sh "${builds[@]}"
