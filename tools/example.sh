#!/usr/bin/env bash
# Sets up this machine, builds the library (linux preset) and runs the example.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/setup.sh
cmake --preset linux >/dev/null
cmake --build --preset linux --target qvbase_example
exec build/linux/bin/qvbase_example build/typical_request.qvd
