#!/usr/bin/env bash
# Race detection: builds the threaded region kernels (level shift, colour
# conversion, sampling) and the Huffman coders with ThreadSanitizer (clang,
# the LLVM OpenMP runtime and its Archer tool, which tells TSan about
# OpenMP's barriers and tasks so that it gives no false reports), then runs
# tests/tsan/race_check.cc.  Any report fails the script.
#
#   tests/tsan/run.sh [BUILD_DIR]      (default build-tsan)
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
out=${1:-$root/build-tsan}
cxx=${CXX_TSAN:-$(command -v clang++-14 || command -v clang++)}
llvm_lib=$("$cxx" -print-file-name=libomp.so | xargs dirname)
archer=$llvm_lib/libarcher.so
[[ -f $archer ]] || archer=/usr/lib/llvm-14/lib/libarcher.so
mkdir -p "$out"

flags=(-std=c++20 -O1 -g -fno-omit-frame-pointer -ffp-contract=off -MD -fsanitize=thread
       -fopenmp=libomp -DHWY_BASELINE_TARGETS=HWY_SSSE3 -DHWY_DISABLED_TARGETS=HWY_SSE4
       -I"$root/include" -I"$root/src" -I"$root/core" -I"$root/tests")
sources=(src/jpeg/level_shift.cc src/jpeg/color_fwd.cc src/jpeg/color_fwd16.cc
         src/jpeg/color_inv.cc src/jpeg/color_inv16.cc src/jpeg/sampling.cc
         src/jpeg/huffman_tables.cc src/jpeg/huffman_encode.cc src/jpeg/huffman_decode.cc
         src/frame/memory.cc core/rvtcore.cc tests/tsan/race_check.cc)

# Rebuild an object when a file its compile read is newer (or flags changed).
stamp="$out/flags"
[[ -f $stamp && $(cat "$stamp") == "$cxx ${flags[*]}" ]] || rm -f "$out"/*.o
echo "$cxx ${flags[*]}" > "$stamp"
stale() {
  local o=$1 dep
  [[ -f $o && -f ${o%.o}.d ]] || return 0
  for dep in $(sed -e 's/\\$//' -e 's/^[^ ]*://' "${o%.o}.d"); do [[ $dep -nt $o ]] && return 0; done
  return 1
}
objs=() todo=()
for s in "${sources[@]}"; do
  o="$out/$(basename "${s%.cc}").o"
  objs+=("$o")
  stale "$o" && todo+=("$s")
done
n_jobs=$(nproc)
for s in "${todo[@]}"; do
  while (( $(jobs -rp | wc -l) >= n_jobs )); do wait -n; done
  "$cxx" "${flags[@]}" -c "$root/$s" -o "$out/$(basename "${s%.cc}").o" &
done
while (( $(jobs -rp | wc -l) > 0 )); do wait -n; done
"$cxx" -fsanitize=thread -fopenmp=libomp "${objs[@]}" -lhwy -lpthread -o "$out/race_check"

export OMP_TOOL_LIBRARIES=$archer
# Four threads even on a two-core machine (the runtime's default is one a core).
export OMP_NUM_THREADS=4
export TSAN_OPTIONS="ignore_noninstrumented_modules=1 halt_on_error=1 exitcode=66 ${TSAN_OPTIONS:-}"
"$out/race_check"
echo "tsan: 0 reports"
