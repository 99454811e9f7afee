#!/usr/bin/env bash
# Builds every fuzz target with clang (libFuzzer, ASan+UBSan) and runs each
# for the given number of seconds (default 20) from its seed corpus,
# printing its executions per second. Stops at the first failing input,
# which libFuzzer leaves as crash-<sha1> in build-fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
jobs=$(nproc)
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -S . -B build-fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVRX_FUZZ=ON -DVRX_BUILD_TESTS=OFF \
  -DVRX_BUILD_SIM=OFF "${launcher[@]}" >/dev/null
cmake --build build-fuzz -j"$jobs" --target fuzzers >/dev/null

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# Absolute paths: the command-line target works in a private directory.
for corpus in "$PWD"/fuzz/corpus/*/; do
  name=$(basename "$corpus")
  mkdir -p "$scratch/$name"
  log="$scratch/$name.log"
  if ! (cd build-fuzz && ./fuzz/"${name}_fuzzer" -max_total_time="$seconds" \
          -max_len=4096 -print_final_stats=1 "$scratch/$name" "$corpus") >"$log" 2>&1; then
    tail -n 40 "$log"
    echo "fuzz: ${name}_fuzzer found a failing input" >&2
    exit 1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  echo "fuzz: ${name}_fuzzer ran ${seconds} s, $runs inputs, $((runs / seconds)) per second"
done
