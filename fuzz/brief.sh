#!/usr/bin/env bash
# The brief run of one fuzz target, as CI makes it: a fresh scratch folder
# for the inputs the run finds (and for what it reports), then the target
# with the arguments given.
#
#   fuzz/brief.sh SCRATCH TARGET [libFuzzer options and corpus folders]
set -euo pipefail
scratch="$1"
shift
rm -rf "$scratch"
mkdir -p "$scratch/corpus"
exec "$@"
