#!/usr/bin/env bash
# Runs the fuzz targets long, one after the other, and prints per target the
# executions, executions per second, peak resident memory and findings.
#
#   fuzz/run.sh                    every target, 10 minutes each
#   fuzz/run.sh --seconds 60 SectionFuzz TypedReadFuzz
#   fuzz/run.sh --runs 10000000    stop each after that many inputs (or the time)
#
# Builds the `fuzz` preset first (clang 14). Each target keeps the inputs it
# finds in build/fuzz-runs/<target>/corpus, so a later run goes on from
# there; its seeds in fuzz/corpus/ are read, never written. A finding (crash,
# leak, allocation over 64 MiB, resident memory over 512 MiB, timeout) stops
# that target and is left in build/fuzz-runs/<target>/ with its log; replay it
# with `build/fuzz/bin/<target> <file>`. The runs are niced: the machine stays
# usable. The table is also written to build/fuzz-runs/summary.txt. Exits 1
# when any target had a finding.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"

seconds=600
runs=-1
wanted=()
while (($#)); do
  case "$1" in
  --seconds) seconds="$2"; shift 2 ;;
  --runs) runs="$2"; shift 2 ;;
  -h | --help) sed -n '2,17p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
  -*) echo "fuzz/run.sh: unknown option $1 (see --help)" >&2; exit 2 ;;
  *) wanted+=("$1"); shift ;;
  esac
done

build="$root/build/fuzz"
if ! { cmake --preset fuzz >/dev/null && cmake --build --preset fuzz >/dev/null; }; then
  echo "fuzz/run.sh: building the fuzz preset failed; run cmake --build --preset fuzz" >&2
  exit 1
fi
# shellcheck source=/dev/null
source "$build/fuzz-settings.sh" # the run's environment and $limits

out="$root/build/fuzz-runs"
mkdir -p "$out"
summary="$out/summary.txt"
printf '%-22s %12s %9s %12s %8s  %s\n' target executions "exec/s" "peak RSS MB" seconds findings \
  | tee "$summary"

failed=0
while IFS='|' read -r name binary corpus dict; do
  [ -n "$name" ] || continue
  if ((${#wanted[@]})) && [[ ! " ${wanted[*]} " == *" $name "* ]]; then
    continue
  fi
  dir="$out/$name"
  mkdir -p "$dir/corpus"
  before=$(find "$dir" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'oom-*' -o -name 'timeout-*' \) | wc -l)
  args=(-max_total_time="$seconds" -runs="$runs" -print_final_stats=1 -artifact_prefix="$dir/")
  [ -n "$dict" ] && args+=(-dict="$dict")
  start=$(date +%s)
  # shellcheck disable=SC2086 # $limits holds several options
  nice -n 10 "$binary" "${args[@]}" $limits "$dir/corpus" "$corpus" >"$dir/log" 2>&1 || true
  elapsed=$(($(date +%s) - start))
  stat() { sed -n "s/^stat::$1: *//p" "$dir/log" | tail -n 1; }
  executions=$(stat number_of_executed_units)
  speed=$(stat average_exec_per_sec)
  rss=$(stat peak_rss_mb)
  after=$(find "$dir" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'oom-*' -o -name 'timeout-*' \) | wc -l)
  findings=$((after - before))
  if [ "$findings" -gt 0 ]; then
    failed=1
    what="$findings: $(grep -m1 -E '^(==[0-9]+== ?ERROR|SUMMARY|broken promise)' "$dir/log" || true)"
  elif [ -z "$executions" ]; then
    failed=1
    what="did not finish: see $dir/log"
  else
    what=0
  fi
  printf '%-22s %12s %9s %12s %8s  %s\n' "$name" "${executions:--}" "${speed:--}" "${rss:--}" \
    "$elapsed" "$what" | tee -a "$summary"
done <"$build/fuzz-targets.txt"
exit "$failed"
