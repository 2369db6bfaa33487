#!/usr/bin/env bash
# Builds the fuzz targets of the bitstream readers, Huffman and PackBits
# (libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer, clang), from
# the library sources they need, and runs each for an equal share of
# SECONDS (default 60).  Any crash, sanitizer report or disagreement
# between code paths fails the script.
#
#   fuzz/build_and_run.sh [SECONDS]
#
# Environment: CXX_FUZZ (default clang++-14, else clang++), RVT_FUZZ_DIR
# (build and corpus directory, default build-fuzz beside fuzz/),
# RVT_FUZZ_BUILD_ONLY=1 (build the targets, run none: fuzz/run_all.sh).
#
# Each target starts from its seed corpus fuzz/corpus/<target>/ (kept in
# the repository) and uses fuzz/<target>.dict when there is one.
set -euo pipefail

total=${1:-60}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(dirname "$here")
out=${RVT_FUZZ_DIR:-$root/build-fuzz}
cxx=${CXX_FUZZ:-$(command -v clang++-14 || command -v clang++)}
mkdir -p "$out/obj"

# The library's target policy (CMakeLists.txt): baseline x86-64 outside
# Highway's SSSE3, AVX2 and AVX-512 targets.  -MD leaves the headers each
# compile used beside its output (scripts/check_deps.sh reads them).
common=(-std=c++20 -O1 -g -fno-omit-frame-pointer -ffp-contract=off -MD
        -DHWY_BASELINE_TARGETS=HWY_SSSE3 -DHWY_DISABLED_TARGETS=HWY_SSE4
        -I"$root/include" -I"$root/src" -I"$root/core" -I"$here")
san=(-fsanitize=address,undefined -fno-sanitize-recover=undefined)

# An object is current when it was built with these flags and is newer than
# every file its compile read.
stamp="$out/obj/flags"
[[ -f $stamp && $(cat "$stamp") == "$cxx ${common[*]} ${san[*]}" ]] || rm -f "$out"/obj/*.o
echo "$cxx ${common[*]} ${san[*]}" > "$stamp"
current() {
  [[ -f $1 && -f ${1%.o}.d ]] || return 1
  local dep
  for dep in $(sed -e 's/\\$//' -e 's/^[^ ]*://' "${1%.o}.d"); do
    [[ $dep -nt $1 ]] && return 1
  done
  return 0
}

sources=(src/jpeg2k/t1.cc src/jpeg/huffman_tables.cc src/jpeg/huffman_encode.cc src/jpeg/huffman_decode.cc src/jpeg/huffman_progressive.cc
         src/jpeg/huffman_decode_blocks.cc src/jpeg/huffman_encode_blocks.cc
         src/tiff/packbits.cc src/texture/bc_decode.cc src/jpeg/lossless.cc src/frame/memory.cc
         src/texture/bptc_decode.cc src/jpegxr/vlc.cc core/rvtcore.cc src/texture/ycocg_dxt5.cc examples/rvttex/dds.cc
         examples/rvtjxr/jxr_container.cc examples/rvtjxr/jxr_decode.cc examples/rvtjxr/jxr_filters.cc fuzz/jxr_exports_ref.cc
         src/jpeg2k/wt53.cc src/jpeg2k/wt97.cc src/jpeg2k/ct.cc examples/rvtj2k/j2k_decode.cc fuzz/j2k_exports_ref.cc
         src/jpeg/dct_inv.cc src/jpeg/quant.cc src/jpeg/sampling.cc src/jpeg/color_inv.cc src/jpeg/huffman_stats.cc
         src/jpeg/upsample_color.cc)
objs=()
for s in "${sources[@]}"; do
  o="$out/obj/$(basename "${s%.cc}").o"
  if ! current "$o"; then
    "$cxx" "${common[@]}" "${san[@]}" -fsanitize=fuzzer-no-link -fopenmp -c "$root/$s" -o "$o"
  fi
  objs+=("$o")
done

targets=(j2k_t1_decode_fuzzer huffman_decode8x8_fuzzer huffman_decode_one_fuzzer huffman_decode_direct_fuzzer
         huffman_encode8x8_fuzzer tiff_unpack_fuzzer texture_decode_fuzzer
         lossless_decode_row_fuzzer progressive_dc_first_fuzzer progressive_dc_refine_fuzzer
         progressive_ac_first_fuzzer progressive_ac_refine_fuzzer huffman_decode_blocks_fuzzer
         bptc_decode_fuzzer jpegxr_vlc_decode_fuzzer dds_read_fuzzer jxr_codec_fuzzer j2k_codec_fuzzer
         jpeg_codec_fuzzer)
for t in "${targets[@]}"; do
  "$cxx" "${common[@]}" "${san[@]}" -fsanitize=fuzzer -fopenmp "$here/$t.cc" "${objs[@]}" \
    -lhwy -o "$out/$t"
done

[[ ${RVT_FUZZ_BUILD_ONLY:-0} == 1 ]] && exit 0

per=$(( total / ${#targets[@]} ))
(( per >= 1 )) || per=1
status=0
for t in "${targets[@]}"; do
  corpus="$out/corpus/$t"
  mkdir -p "$corpus"
  seeds=() dict=()
  [[ -d $here/corpus/$t ]] && seeds=("$here/corpus/$t")
  # Real files seed the block decoder (it reads their tables and scan).
  if [[ $t == huffman_decode8x8_fuzzer ]]; then seeds+=("$root/testdata"); fi
  [[ -d $here/seeds/$t ]] && seeds+=("$here/seeds/$t")
  [[ -f $here/$t.dict ]] && dict=(-dict="$here/$t.dict")
  echo "== $t: ${per}s"
  if ! "$out/$t" -max_total_time="$per" -max_len=8192 -rss_limit_mb=2048 -timeout=10 \
       -artifact_prefix="$out/$t-" "${dict[@]}" \
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
