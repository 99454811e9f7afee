#!/usr/bin/env bash
# Builds the project twice (plain and with ASan+UBSan) and runs every test
# suite in both: unit, golden (the real binary), and end to end (the real
# binary against the simulated BMC, which needs root for its namespace).
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

bash scripts/install-deps.sh

cmake -S . -B build -DCMAKE_BUILD_TYPE=Debug
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DVRX_SANITIZE=ON
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs" -LE e2e
