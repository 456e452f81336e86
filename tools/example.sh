#!/usr/bin/env bash
# Installs only what the Linux build needs (tools/setup.sh example: the
# compiler, CMake, Ninja and llvm-rc; no cross compilers, no Wine, no GoogleTest),
# builds the library and its example in build/example and runs the example.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/setup.sh example
cmake --preset example >/dev/null
cmake --build --preset example --target qvbase_example
exec build/example/bin/qvbase_example build/typical_request.qvd
