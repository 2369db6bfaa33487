#!/usr/bin/env bash
# Processors without SSSE3 run the scalar references, so every function of
# the given shared libraries outside Highway's per-target namespaces
# (N_SSSE3, N_AVX2, N_AVX3, N_EMU128) must be x86-64 baseline code: no
# instruction beyond SSE2 and no VEX/EVEX encoding.  Prints each offending
# function with its first offending instruction and fails.
#
#   check_baseline.sh LIB.so...
set -euo pipefail
(( $# > 0 )) || { echo "usage: $0 LIB.so..." >&2; exit 2; }
status=0
for lib in "$@"; do
  objdump -d -C --no-show-raw-insn "$lib" | awk -v lib="$(basename "$lib")" '
    # Mnemonics of SSE3, SSSE3, SSE4.1/4.2 and the bit-manipulation, string
    # and crypto extensions; VEX/EVEX forms all start with "v", AVX-512 mask
    # operations with "k".  tzcnt is absent on purpose: compilers emit
    # "rep bsf" for a count of trailing zeros of a non-zero value, which
    # disassembles as tzcnt and runs as bsf on older processors.
    BEGIN {
      beyond = "^(" \
        "addsubp[sd]|hadd(p[sd])|hsubp[sd]|lddqu|movddup|movs[hl]dup|fisttp[lsq]?|monitor|mwait|" \
        "pshufb|palignr|pmaddubsw|phadd(w|d|sw)|phsub(w|d|sw)|pabs[bwd]|psign[bwd]|pmulhrsw|" \
        "ptest|pblendw|pblendvb|blendv?p[sd]|pmins[bd]|pminu[wd]|pmaxs[bd]|pmaxu[wd]|" \
        "pextr[bdq]|pinsr[bdq]|pmov[sz]x[bwd][wdq]|pmulld|pmuldq|pcmpeqq|packusdw|" \
        "round[ps][sd]|dpp[sd]|insertps|extractps|mpsadbw|phminposuw|movntdqa|" \
        "pcmpgtq|pcmp[ei]str[im]|crc32[bwlq]?|popcnt[wlq]?|lzcnt[wlq]?|" \
        "andn[lq]?|bextr[lq]?|blsi[lq]?|blsmsk[lq]?|blsr[lq]?|bzhi[lq]?|mulx[lq]?|pdep[lq]?|pext[lq]?|" \
        "rorx[lq]?|sarx[lq]?|shlx[lq]?|shrx[lq]?|movbe[wlq]?|adcx[lq]?|adox[lq]?|" \
        "pclmul.*|aes.*|sha1.*|sha256.*|v.*|k[a-z]+[bwdq])$"
      prefix = "^(rep|repz|repnz|repe|repne|lock|data16|addr32|notrack|bnd|cs|ds|es|ss|fs|gs|rex.*)$"
    }
    # "0000000000012340 <name>:" starts a function.
    /^[0-9a-f]+ <.*>:$/ {
      fn = $0; sub(/^[0-9a-f]+ </, "", fn); sub(/>:$/, "", fn)
      skip = (fn ~ /N_(SSSE3|AVX2|AVX3|EMU128)/)
      nfn += !skip; reported = 0
      next
    }
    /^ *[0-9a-f]+:\t/ {
      if (skip || reported || fn == "") next
      line = $0; sub(/^ *[0-9a-f]+:\t/, "", line)
      n = split(line, t, /[ \t]+/)
      i = 1
      while (i < n && t[i] ~ prefix) i++
      m = t[i]; ops = (i < n) ? t[i + 1] : ""
      bad = (m ~ beyond) || (ops ~ /%[yz]mm|%k[0-7]/) || (m == "pextrw" && ops !~ /,%[a-z0-9]+$/)
      if (bad) { printf "%s: %s: %s\n", lib, fn, line; reported = 1; nbad++ }
    }
    END {
      if (nfn == 0) { printf "%s: no baseline function found\n", lib; exit 1 }
      printf "%s: %d functions outside the Highway targets, %d beyond SSE2\n", lib, nfn, nbad
      exit nbad > 0
    }' || status=1
done
exit $status
