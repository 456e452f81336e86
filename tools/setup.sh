#!/usr/bin/env bash
# Installs what this project needs on a Debian 12 machine: the build tools,
# GoogleTest's sources, the 32-bit multilib compilers, both MinGW-w64 cross
# compilers and Wine. Safe to run again: when everything is there it prints
# nothing and exits 0.
set -euo pipefail

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
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if ! command -v apt-get >/dev/null 2>&1; then
  echo "setup: this machine has no apt-get; install these by hand: ${missing[*]}" >&2
  exit 1
fi

sudo=()
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
    sudo=(sudo -n)
  else
    echo "setup: missing packages: ${missing[*]}" >&2
    echo "setup: installing them needs root; run: sudo apt-get install ${missing[*]}" >&2
    exit 1
  fi
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
if ! "${sudo[@]}" apt-get update -qq >"$log" 2>&1; then
  echo "setup: apt-get update failed (no network, or no package mirror reachable):" >&2
  tail -n 5 "$log" >&2
  rm -f "$log"
  exit 1
fi
if ! "${sudo[@]}" apt-get install -y -qq "${missing[@]}" >"$log" 2>&1; then
  echo "setup: apt-get install failed:" >&2
  tail -n 10 "$log" >&2
  rm -f "$log"
  exit 1
fi
rm -f "$log"
echo "setup: done"
