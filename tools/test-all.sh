#!/usr/bin/env bash
# Sets up this machine, then builds and tests every target it can run:
# linux, linux-asan, linux-tsan (the threading and port suites) and
# linux-m32 natively, mingw64 under Wine; mingw32 is
# built only; every fuzz target (clang) runs briefly from its seeds. Also
# checks that every source is formatted, runs clang-tidy over the library and
# the tools (tools/lint.sh: about 22 s of processor time, well under a
# minute), installs the linux build and builds a client project against the
# installed copy, and builds the Debian packages, checks them with lintian
# and builds the client against them. Warnings are errors here.
# Ends with CTest's summary of the last target; exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/setup.sh
export QVBASE_WERROR="${QVBASE_WERROR:-ON}"
# Tests that need a locale tools/setup.sh provides fail instead of skipping
# when it is missing (tests/README.md): a CI run must not lose coverage.
export CI="${CI:-1}"

step() { printf '\n==== %s\n' "$*"; }

step "format: every source as clang-format writes it"
tools/check-format.sh

step "linux: build and test"
cmake --workflow --preset linux

step "lint: clang-tidy over the library and the tools (.clang-tidy)"
tools/lint.sh

step "API reference: Doxygen over the public headers, every class documented"
tools/api-reference.sh

step "install and build a client against the installed copy, with CMake and with pkg-config"
rm -rf build/install-check build/consumer
cmake --install build/linux --prefix build/install-check >/dev/null
cmake -S tests/consumer -B build/consumer -G Ninja -DCMAKE_PREFIX_PATH="$PWD/build/install-check" >/dev/null
cmake --build build/consumer
ctest --test-dir build/consumer --output-on-failure
tests/consumer/build-with-pkg-config.sh build/install-check build/consumer

step "Debian packages: build, lintian, unpack into a scratch root, build a client with CMake and pkg-config"
tools/build-packages.sh

step "linux-asan: build and test under AddressSanitizer and UndefinedBehaviorSanitizer"
cmake --workflow --preset linux-asan

step "fuzz: build every fuzz target and run each briefly from its seeds"
cmake --workflow --preset fuzz

step "linux-tsan: the threading and port suites under ThreadSanitizer (library and those suites only)"
cmake --workflow --preset linux-tsan

step "linux-m32: build and test the 32-bit library"
cmake --workflow --preset linux-m32

step "mingw32: build the 32-bit Windows library"
cmake --workflow --preset mingw32

step "mingw64: build and test under Wine"
cmake --workflow --preset mingw64
