#!/usr/bin/env bash
# Instructions per value of benchmarks, counted by callgrind: the stable
# figure beside bench/run.sh's timings on a machine whose speed drifts.
#
#   bench/count.sh BUILD_DIR REGEX     (bench/run.sh --count calls it)
#
# Each benchmark whose name matches REGEX runs for exactly one iteration
# (--benchmark_min_time=0) under callgrind, counting only what the benchmark
# times: the counts are zeroed when its timed loop starts and written out when
# it ends. Every symbol is bound at start (LD_BIND_NOW), so that the lazy
# binding of the first calls is not counted. The size in the benchmark's name
# is the number of values (stream_*: typed values; sections: sections); the
# figure printed is the instruction count divided by it, and for peers also
# as a ratio: peer instructions / qvbase instructions (above 1: qvbase does
# less work). The callgrind files stay in BUILD_DIR/count/ for
# callgrind_annotate, which breaks each count down by function.
set -euo pipefail

build="$1"
pattern="$2"
program="$build/qvbase_bench"
out="$build/count"
mkdir -p "$out"

mapfile -t names < <("$program" --benchmark_list_tests=true | grep -E -- "$pattern")
if ((${#names[@]} == 0)); then
  echo "bench/count.sh: no benchmark matches $pattern" >&2
  exit 1
fi

declare -A per_value
printf '%-32s %16s %14s\n' benchmark instructions "per value"
for name in "${names[@]}"; do
  file="$out/$(echo "$name" | tr '/' '_').callgrind"
  rm -f "$file" "$file".*
  LD_BIND_NOW=1 valgrind --tool=callgrind --callgrind-out-file="$file" \
    --zero-before='benchmark::State::StartKeepRunning()' \
    --dump-before='benchmark::State::FinishKeepRunning()' \
    "$program" --benchmark_filter="^${name}\$" --benchmark_min_time=0 >/dev/null 2>"$file.log"
  # The first dump is the timed loop; what follows it is the program's end.
  mv "$file.1" "$file"
  total=$(sed -n 's/^summary: *//p' "$file")
  size="${name##*/}"
  per_value[$name]=$(awk -v t="$total" -v n="$size" 'BEGIN { printf "%.1f", t / n }')
  printf '%-32s %16s %14s\n' "$name" "$total" "${per_value[$name]}"
done

# Each peer against the qvbase benchmark of the same scenario and size.
echo
printf '%-24s %10s  %s\n' "scenario/size" "qvbase" "peer instructions / qvbase instructions"
for name in "${names[@]}"; do
  IFS=/ read -r scenario impl size <<<"$name"
  [ "$impl" = qvbase ] || continue
  line=""
  for peer in "${names[@]}"; do
    IFS=/ read -r s2 i2 z2 <<<"$peer"
    [ "$s2" = "$scenario" ] && [ "$z2" = "$size" ] && [ "$i2" != qvbase ] || continue
    line+=$(awk -v p="${per_value[$peer]}" -v q="${per_value[$name]}" -v i="$i2" \
      'BEGIN { printf "%s %.3g  ", i, p / q }')
  done
  printf '%-24s %10s  %s\n' "$scenario/$size" "${per_value[$name]}" "$line"
done
