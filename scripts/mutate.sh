#!/usr/bin/env bash
# Mutation run over the update and USB procedures (see scripts/mutate.py):
# builds the Debug tree, then tries every mutant and lists the survivors.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE=Debug >/dev/null
exec python3 scripts/mutate.py "$@"
