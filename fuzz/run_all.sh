#!/usr/bin/env bash
# Runs every fuzz target for SECONDS each (default 60), one after the other,
# from its seed corpus (fuzz/corpus/<target>/), its dictionary when it has
# one, and the corpus it grew in earlier runs, and prints a table: target,
# seconds, executions, coverage (edges), corpus size, findings.  Findings
# (crashes, sanitizer reports, leaks, timeouts) are left beside the targets
# as <target>-crash-*, -leak-*, -timeout-*; the script fails when there is one.
#
#   fuzz/run_all.sh [SECONDS] [TARGET_SUBSTRING]
#
# Environment as fuzz/build_and_run.sh (it builds the targets); RVT_FUZZ_JOBS
# runs that many targets at once (default 1).  On a shared machine run it
# as `nice -n 19 fuzz/run_all.sh 3600`.
set -euo pipefail
seconds=${1:-60}
filter=${2:-}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
out=${RVT_FUZZ_DIR:-$(dirname "$here")/build-fuzz}
RVT_FUZZ_DIR=$out RVT_FUZZ_BUILD_ONLY=1 "$here/build_and_run.sh"

targets=()
for exe in "$out"/*_fuzzer; do
  t=$(basename "$exe")
  [[ -z $filter || $t == *"$filter"* ]] && targets+=("$t")
done

run_one() {
  local t=$1 corpus="$out/corpus/$1" seeds=() dict=()
  mkdir -p "$corpus"
  [[ -d $here/corpus/$t ]] && seeds=("$here/corpus/$t")
  [[ -f $here/$t.dict ]] && dict=(-dict="$here/$t.dict")
  rm -f "$out/$t"-crash-* "$out/$t"-leak-* "$out/$t"-timeout-* "$out/$t"-oom-* "$out/$t.row"
  local start=$SECONDS rc=0
  "$out/$t" -max_total_time="$seconds" -max_len=8192 -rss_limit_mb=2048 -timeout=10 \
    -artifact_prefix="$out/$t-" "${dict[@]}" -print_final_stats=1 \
    "$corpus" "${seeds[@]}" > "$out/$t.run.log" 2>&1 || rc=$?
  local execs cov units findings
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$out/$t.run.log" | tail -1)
  cov=$(grep -oE 'cov: [0-9]+' "$out/$t.run.log" | tail -1 | cut -d' ' -f2 || true)
  units=$(find "$corpus" -type f | wc -l)
  findings=$(find "$out" -maxdepth 1 -name "$t-*" \( -name '*-crash-*' -o -name '*-leak-*' \
             -o -name '*-timeout-*' -o -name '*-oom-*' \) | wc -l)
  if (( rc != 0 && findings == 0 )); then findings="exit-$rc"; fi
  printf '%-32s %8d %12s %9s %8s %9s\n' "$t" $(( SECONDS - start )) "${execs:-?}" "${cov:-?}" \
    "$units" "$findings" > "$out/$t.row"
}

jobs_max=${RVT_FUZZ_JOBS:-1}
for t in "${targets[@]}"; do
  while (( $(jobs -rp | wc -l) >= jobs_max )); do wait -n || true; done
  run_one "$t" &
done
wait || true

printf '%-32s %8s %12s %9s %8s %9s\n' target seconds executions coverage corpus findings
status=0
for t in "${targets[@]}"; do
  if [[ -f $out/$t.row ]]; then
    cat "$out/$t.row"
    [[ $(awk '{print $6}' "$out/$t.row") == 0 ]] || status=1
  else
    echo "$t: no result"; status=1
  fi
done
exit $status
