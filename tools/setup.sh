#!/usr/bin/env bash
# Installs what this project needs on a Debian 12 machine, for one profile:
#
#   tools/setup.sh example   the Linux build of the library and its example:
#                            the compiler, CMake, Ninja and llvm-rc
#                            (tools/example.sh)
#   tools/setup.sh [all]     everything tools/test-all.sh uses: also
#                            GoogleTest, the 32-bit multilib compilers, both
#                            MinGW-w64 cross compilers and Wine, the format
#                            and lint tools, the locales the tests switch to,
#                            Doxygen, pkg-config and the Debian packaging tools
#
# It names the packages it installs. Safe to run again: when everything is
# there it prints nothing and exits 0.
set -euo pipefail

profile=${1:-all}
case "$profile" in
  example | all) ;;
  -h | --help) sed -n '2,14p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
  *) echo "setup: unknown profile '$profile' (example or all)" >&2; exit 2 ;;
esac

# llvm-rc (package llvm, with clang as its preprocessor) compiles the
# library's own resource module on Linux.
example_packages=(cmake ninja-build g++ llvm clang)

packages=(
  cmake             # the build
  ninja-build
  g++
  googletest        # /usr/src/googletest, built inside every build tree
  g++-multilib      # the linux-m32 preset
  g++-mingw-w64-x86-64-posix
  g++-mingw-w64-i686-posix
  wine64            # runs the mingw64 tests
  wine
  util-linux        # flock, used by the Wine wrapper
  clang-format      # tools/check-format.sh
  clang-tidy        # tools/lint.sh
  llvm              # llvm-rc: .rc sources -> compiled resource files on Linux
  clang             # the preprocessor llvm-rc runs; the fuzz targets (libFuzzer)
  lld               # lld-link: the PE resource images the reader's tests read
  locales           # the locale tests: the locales below
  pkg-config        # the client built with pkg-config's answer
  doxygen           # the API reference (docs preset)
  debhelper         # the Debian packages (tools/build-packages.sh)
  fakeroot
  lintian
)
if [ "$profile" = example ]; then
  packages=("${example_packages[@]}")
fi

# The locales the tests switch to: one with a decimal comma, so the
# number-formatting tests can show that the library keeps "." where the
# user's locale would write ","; and Turkish, whose capital I is not the
# capital of i, so the string tests can show that case-insensitive
# comparison follows the locale there.
locales=(de_DE tr_TR)
need_locale() {
  [ "$profile" = all ] || return 1
  local l
  for l in "${locales[@]}"; do
    locale -a 2>/dev/null | grep -qix "$l.utf8" || return 0
  done
  return 1
}

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && ! need_locale && exit 0

if ! command -v apt-get >/dev/null 2>&1; then
  echo "setup: this machine has no apt-get; install these by hand: ${missing[*]}" >&2
  exit 1
fi

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  if [ ${#missing[@]} -eq 0 ]; then
    echo "setup: the ${locales[*]/%/.UTF-8} locales are not all there; the tests that" >&2
    echo "setup: need them will be skipped (as root: locale-gen ${locales[*]/%/.UTF-8})" >&2
    exit 0
  fi
  if command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
    sudo=(sudo -n)
  else
    echo "setup: missing packages: ${missing[*]}" >&2
    echo "setup: installing them needs root; run: sudo apt-get install ${missing[*]}" >&2
    exit 1
  fi
fi

export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup ($profile): installing ${missing[*]}"
  if ! "${sudo[@]}" apt-get update -qq >"$log" 2>&1; then
    echo "setup: apt-get update failed (no network, or no package mirror reachable):" >&2
    tail -n 5 "$log" >&2
    exit 1
  fi
  if ! "${sudo[@]}" apt-get install -y -qq "${missing[@]}" >"$log" 2>&1; then
    echo "setup: apt-get install failed:" >&2
    tail -n 10 "$log" >&2
    exit 1
  fi
fi

if need_locale; then
  echo "setup: generating the ${locales[*]/%/.UTF-8} locales"
  for l in "${locales[@]}"; do
    "${sudo[@]}" sed -i "s/^# *$l.UTF-8 UTF-8/$l.UTF-8 UTF-8/" /etc/locale.gen
    grep -q "^$l.UTF-8 UTF-8" /etc/locale.gen || echo "$l.UTF-8 UTF-8" | "${sudo[@]}" tee -a /etc/locale.gen >/dev/null
  done
  if ! "${sudo[@]}" locale-gen >"$log" 2>&1; then
    echo "setup: locale-gen failed:" >&2
    tail -n 5 "$log" >&2
    exit 1
  fi
fi
echo "setup: done"
