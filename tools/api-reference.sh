#!/usr/bin/env bash
# Builds the API reference from the public headers' comments with Doxygen
# (docs/api/Doxyfile) into build/docs/html; open build/docs/html/index.html.
# Fails on any warning but an undocumented member: every public class and
# structure must have its comment, and no comment may confuse the tool.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v doxygen >/dev/null || { echo "api-reference: doxygen is missing (tools/setup.sh installs it)" >&2; exit 1; }
rm -rf build/docs
mkdir -p build/docs
doxygen docs/api/Doxyfile
# Members document themselves by their names and their class's comment more
# often than not; only they may go without a comment.
if grep -v -E 'warning: Member .* is not documented\.$' build/docs/warnings.log; then
  echo "api-reference: the warnings above need fixing (all of them: build/docs/warnings.log)" >&2
  exit 1
fi
echo "api-reference: build/docs/html/index.html"
