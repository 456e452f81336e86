#!/usr/bin/env bash
# Builds the Debian packages libqvbase12, libqvbase-dev and qvbase-tools from
# this tree with the standard tools (dpkg-buildpackage, debhelper), checks
# them with lintian (errors fail), unpacks them into a scratch root and
# builds the client of tests/consumer against what they installed, with
# CMake and with pkg-config.
#
#   tools/build-packages.sh      packages in build/deb/, scratch root build/deb/root
set -euo pipefail
cd "$(dirname "$0")/.."
out=build/deb
version=$(dpkg-parsechangelog -S Version)
rm -rf "$out"
src="$out/src/qvbase-$version"
mkdir -p "$src"

# The tree as git sees it (tracked and new files, not what .gitignore
# leaves out, so no build trees), copied whole: dpkg-buildpackage writes its
# results beside the source directory.
git ls-files -co --exclude-standard -z |
  while IFS= read -r -d '' f; do [ -e "$f" ] && printf '%s\0' "$f"; done |
  tar --null -T - -cf - | tar -xf - -C "$src"

echo "packages: building qvbase $version"
(cd "$src" && dpkg-buildpackage -b -us -uc >../build.log 2>&1) || {
  tail -n 30 "$out/src/build.log" >&2
  echo "packages: dpkg-buildpackage failed (whole log: $out/src/build.log)" >&2
  exit 1
}
mv "$out"/src/*.deb "$out"/src/*.changes "$out"/src/*.buildinfo "$out"/

echo "packages: lintian"
lintian --fail-on error --suppress-tags-from-file /dev/null "$out"/*.changes

echo "packages: unpacking into a scratch root"
root="$out/root"
mkdir -p "$root"
for deb in "$out"/*.deb; do
  dpkg-deb -x "$deb" "$root"
  echo "  $(basename "$deb")"
done

echo "packages: a client built with CMake against the packages"
cmake -S tests/consumer -B "$out/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$PWD/$root/usr" >/dev/null
cmake --build "$out/consumer" >/dev/null
libdir=$(dirname "$(find "$root/usr/lib" -name 'libqvbase12.so.1' | head -n 1)")
LD_LIBRARY_PATH="$PWD/$libdir" ctest --test-dir "$out/consumer" --output-on-failure
echo "packages: a client built with pkg-config against the packages"
tests/consumer/build-with-pkg-config.sh "$root" "$out/consumer"
