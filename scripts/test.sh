#!/usr/bin/env bash
# Builds the project and runs every suite: unit, golden (the real binary),
# root-only and end to end (the real binary against the simulated BMC, which
# needs root for its namespace); then the unit and golden suites again under
# ASan+UBSan, and a short run of the image header fuzzer.
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
  ctest --test-dir build-asan --output-on-failure -j"$jobs" -LE e2e

# A short fuzz run of the image header parser and rules (clang + libFuzzer).
cmake -S fuzz -B build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build-fuzz -j"$jobs"
fuzz_corpus=$(mktemp -d)
trap 'rm -rf "$fuzz_corpus"' EXIT
./build-fuzz/header_fuzzer -max_total_time=20 -max_len=2048 "$fuzz_corpus" fuzz/corpus 2>&1 | tail -n 3
echo "fuzz: header_fuzzer ran 20 s without a failing input"
