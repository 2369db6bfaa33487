#!/usr/bin/env bash
# Builds the Huffman fuzz targets (libFuzzer, AddressSanitizer and
# UndefinedBehaviorSanitizer, clang) from the library sources they need, and
# runs each for an equal share of SECONDS (default 60).  Any crash, sanitizer
# report or disagreement between code paths fails the script.
#
#   fuzz/build_and_run.sh [SECONDS]
#
# Environment: CXX_FUZZ (default clang++-14, else clang++), RVT_FUZZ_DIR
# (build and corpus directory, default build-fuzz beside fuzz/).
set -euo pipefail

total=${1:-60}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
out=${RVT_FUZZ_DIR:-$root/build-fuzz}
cxx=${CXX_FUZZ:-$(command -v clang++-14 || command -v clang++)}
mkdir -p "$out/obj"

common=(-std=c++20 -O1 -g -fno-omit-frame-pointer -mssse3 -DHWY_DISABLED_TARGETS=HWY_SSE4
        -I"$root/include" -I"$root/src" -I"$root/core" -I"$here")
san=(-fsanitize=address,undefined -fno-sanitize-recover=undefined)

sources=(src/jpeg/huffman_tables.cc src/jpeg/huffman_encode.cc src/jpeg/huffman_decode.cc
         src/frame/memory.cc core/rvtcore.cc)
objs=()
for s in "${sources[@]}"; do
  o="$out/obj/$(basename "${s%.cc}").o"
  if [[ ! -f "$o" || "$root/$s" -nt "$o" || -n $(find "$root/src/jpeg" "$root/src/frame" -name '*.h' -newer "$o") ]]; then
    "$cxx" "${common[@]}" "${san[@]}" -fsanitize=fuzzer-no-link -fopenmp -c "$root/$s" -o "$o"
  fi
  objs+=("$o")
done

targets=(huffman_decode8x8_fuzzer huffman_decode_one_fuzzer huffman_decode_direct_fuzzer
         huffman_encode8x8_fuzzer)
for t in "${targets[@]}"; do
  "$cxx" "${common[@]}" "${san[@]}" -fsanitize=fuzzer -fopenmp "$here/$t.cc" "${objs[@]}" \
    -lhwy -o "$out/$t"
done

per=$(( total / ${#targets[@]} ))
(( per >= 1 )) || per=1
status=0
for t in "${targets[@]}"; do
  corpus="$out/corpus/$t"
  mkdir -p "$corpus"
  seeds=()
  # Real files seed the block decoder (it reads their tables and scan).
  if [[ $t == huffman_decode8x8_fuzzer ]]; then seeds=("$root/testdata"); fi
  echo "== $t: ${per}s"
  if ! "$out/$t" -max_total_time="$per" -max_len=8192 -rss_limit_mb=2048 -timeout=10 \
       -artifact_prefix="$out/$t-" \
       -print_final_stats=1 "$corpus" "${seeds[@]}" > "$out/$t.log" 2>&1; then
    status=1
    echo "!! $t failed:"
    tail -n 40 "$out/$t.log"
  fi
  grep -E '^stat::number_of_executed_units|^stat::peak_rss_mb|^Done [0-9]+ runs' "$out/$t.log" || true
done
if (( status == 0 )); then
  echo "fuzz: ${#targets[@]} passed, 0 failed"
else
  echo "fuzz: failures above"
fi
exit $status
