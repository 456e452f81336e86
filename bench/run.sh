#!/usr/bin/env bash
# Builds and runs the benchmark program against the peer libraries, then
# prints how each peer compares with qvbase (peer time / qvbase time: above 1
# means qvbase is faster).
#
#   bench/run.sh [extra Google Benchmark options, e.g. --benchmark_filter=str_]
#   bench/run.sh --count [REGEX]
#
# Takes about four minutes on two cores, and some minutes more for the
# messaging scenarios (msg_), whose runs of a million messages take long.
# With --count it times nothing: it runs one iteration of each typed-stream
# and section benchmark at its large size (or of those whose name matches
# REGEX) under callgrind and prints the instructions each takes per value, a
# figure that stays the same however busy the machine is (about a minute).
set -euo pipefail

count=0
if [ "${1:-}" = "--count" ]; then
  count=1
  shift
fi

here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/.." && pwd)"
build="$root/build/bench"

packages=(libbenchmark-dev qtbase5-dev libpoco-dev libboost-dev uuid-dev pkg-config)
((count)) && packages+=(valgrind)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "Installing the peer libraries: ${missing[*]}"
  sudo_cmd=()
  if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo >/dev/null; then sudo_cmd=(sudo); fi
  fi
  if ! command -v apt-get >/dev/null ||
     ! { "${sudo_cmd[@]}" apt-get update -q >/dev/null &&
         DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -q "${missing[@]}" >/dev/null; }; then
    echo "bench/run.sh: cannot install ${missing[*]}." >&2
    echo "Install them with your package manager (Debian/Ubuntu: apt-get install ${missing[*]}) and run again." >&2
    exit 1
  fi
fi

mkdir -p "$build"
log="$build/build.log"
if ! { cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=Release &&
       cmake --build "$build" -j2; } >"$log" 2>&1; then
  tail -n 30 "$log" >&2
  echo "bench/run.sh: the build failed; the whole log is $log" >&2
  exit 1
fi

if ((count)); then
  exec "$here/count.sh" "$build" "${1:-^(stream_be|stream_le)/[^/]*/1000000\$|^sections/[^/]*/100000\$}"
fi

# Five runs of each benchmark, of which the table takes the median, in a
# random order across all benchmarks: a slow spell of the machine then falls
# on qvbase and its peers alike instead of on whichever ran during it.
"$build/qvbase_bench" --benchmark_format=json --benchmark_repetitions=5 \
  --benchmark_enable_random_interleaving=true --benchmark_min_time=0.2 \
  --benchmark_report_aggregates_only=true "$@" >"$build/results.json"
echo "Results: $build/results.json"
# With the figures of the library before its tuning (bench/results/), the
# table also shows how much faster each qvbase row has become.
before=()
[ -f "$here/results/before.json" ] && before=(--before "$here/results/before.json")
python3 "$here/ratios.py" "$build/results.json" "${before[@]}"
