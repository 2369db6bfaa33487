#!/usr/bin/env bash
# Builds the library and shows what it is for on a real photo.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$(nproc)"
if [ -x examples/main_job.sh ]; then
  exec examples/main_job.sh build
fi
./build/tests/abi_c99
./build/bench/level_shift_bench --benchmark_min_time=0.2
