#!/usr/bin/env bash
# Builds the client of main.cpp the way a Makefile project does, with only
# pkg-config's answer for qvbase12, against the copy installed under ROOT
# (a --prefix of cmake --install, or a scratch root holding the packages'
# /usr), then runs it and checks what it prints.
#
#   tests/consumer/build-with-pkg-config.sh ROOT OUTDIR
set -euo pipefail
root=$(cd "$1" && pwd)
out=$2
here=$(cd "$(dirname "$0")" && pwd)
pc=$(find "$root" -name qvbase12.pc -path '*/pkgconfig/*' | head -n 1)
[ -n "$pc" ] || { echo "no qvbase12.pc under $root" >&2; exit 1; }
export PKG_CONFIG_PATH=$(dirname "$pc")
libdir=$(pkg-config --variable=libdir qvbase12)
mkdir -p "$out"
# The client's own resource module, compiled as a Makefile would: llvm-rc
# makes the compiled resource file the library reads on Linux. Its options
# start with a slash, so "--" keeps an absolute input path from reading as one.
resources="$out/ConsumerRes-pkg-config.res"
llvm-rc /FO "$resources" -- "$here/ConsumerRes.rc"
# shellcheck disable=SC2046 # the flags are meant to split into words
${CXX:-c++} "$here/main.cpp" -o "$out/consumer-pkg-config" \
  -DCONSUMER_RESOURCES="\"$(cd "$(dirname "$resources")" && pwd)/$(basename "$resources")\"" \
  $(pkg-config --cflags --libs qvbase12)
printed=$(LD_LIBRARY_PATH="$libdir" "$out/consumer-pkg-config")
echo "$printed"
case "$printed" in
  "qvbase12 $(pkg-config --modversion qvbase12) build "*"
Hello from the client's own resources") ;;
  *) echo "unexpected output from the pkg-config client" >&2; exit 1 ;;
esac
