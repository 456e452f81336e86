#!/usr/bin/env bash
# Runs clang-tidy with the checks of .clang-tidy over the library's sources
# (src/, the POSIX side of the platform layer) and the tools, as the linux
# preset compiles them. Prints what it finds and exits 1 when it finds
# anything. Configures the linux preset first when it has no compile
# database yet.
#
#   tools/lint.sh              every source
#   tools/lint.sh src/strings  the sources under one folder
set -euo pipefail
cd "$(dirname "$0")/.."
db=build/linux/compile_commands.json
if [ ! -f "$db" ]; then
  cmake --preset linux >/dev/null
fi
# The version header the library's sources include is generated at configure
# time; the database alone is enough for everything else.
roots=("${@:-src tools}")
mapfile -t files < <(git ls-files ${roots[*]} | grep -E '\.cpp$' | grep -v '/win32/')
[ ${#files[@]} -gt 0 ] || { echo "lint: no sources under ${roots[*]}" >&2; exit 2; }
log=$(mktemp)
trap 'rm -f "$log"' EXIT
status=0
printf '%s\n' "${files[@]}" |
  xargs -P "$(nproc)" -n 4 clang-tidy -p build/linux --quiet >"$log" 2>&1 || status=$?
# clang-tidy prints a count of suppressed warnings in system headers; only
# the findings matter here.
grep -v -E '^[0-9]+ warnings? (and [0-9]+ errors? )?generated\.$|^Suppressed [0-9]+ warnings|^Use -header-filter|^Error while processing' "$log" || true
if [ $status -ne 0 ]; then
  echo "lint: clang-tidy found problems (see above)" >&2
  exit 1
fi
echo "lint: ${#files[@]} sources clean"
