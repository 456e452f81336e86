#!/usr/bin/env bash
# Checks that every C++ source in the repository is formatted as
# .clang-format says; prints the files that are not and exits 1.
# Run `git ls-files '*.cpp' '*.h' | xargs clang-format -i` to fix them.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror
