#!/usr/bin/env bash
# Builds the project and runs every suite: unit, golden (the real binary),
# root-only and end to end (the real binary against the simulated BMC, which
# needs root for its namespace); then the unit and golden suites again under
# ASan+UBSan, and a short run of every fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

bash scripts/install-deps.sh

# As root every end-to-end test can run: a skip there means a broken set-up.
if [ "$(id -u)" -eq 0 ]; then export VRX_E2E_REQUIRED=1; fi

cmake -S . -B build -DCMAKE_BUILD_TYPE=Debug
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DVRX_SANITIZE=ON
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs" -LE 'e2e|fullsystem'

# Every fuzz target (one per parser of outside data) for 20 s each under
# ASan+UBSan (clang + libFuzzer).
bash scripts/fuzz.sh 20
