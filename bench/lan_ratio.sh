#!/usr/bin/env bash
# What the program adds to one LAN request: the wall time of `vrxfwul -xml`
# divided by the ipmitool runs it made, against a bare `ipmitool raw 6 1` on
# the same simulated BMC, in one run. A ratio near 1 means the program costs
# nothing beyond the tool it runs.
#
#   bench/lan_ratio.sh [BUILD_DIR] [ROUNDS]     (as root; uses sim/harness.sh)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-$here/../build}
rounds=${2:-20}
if [ -z "${VRX_SIM_DIR:-}" ]; then
  exec bash "$here/../sim/harness.sh" --build "$build" --servers none -- \
    bash "$0" "$build" "$rounds"
fi
cd "$VRX_SIM_DIR"
vrx=$build/vrxfwul
export IPMI_PASSWORD=$VRX_SIM_PASSWORD
now_ns() { date +%s%N; }

# Requests one inventory sends (the search and the document's version read).
"$vrx" -xml -debugmsg -H="$VRX_SIM_HOST" -U="$VRX_SIM_USER" -L=lan >probe.out
per_run=$(grep -c "excute cmd: ipmitool" probe.out)

start=$(now_ns)
for ((i = 0; i < rounds; i++)); do
  ipmitool -I lan -U "$VRX_SIM_USER" -E -H "$VRX_SIM_HOST" raw 6 1 >/dev/null
done
bare=$(( ($(now_ns) - start) / rounds ))

start=$(now_ns)
for ((i = 0; i < rounds; i++)); do
  "$vrx" -xml -H="$VRX_SIM_HOST" -U="$VRX_SIM_USER" -L=lan >/dev/null
done
program=$(( ($(now_ns) - start) / rounds / per_run ))

awk -v b="$bare" -v p="$program" -v n="$per_run" -v r="$rounds" 'BEGIN {
  printf "bare ipmitool raw 6 1:          %.1f ms per request\n", b / 1e6
  printf "through vrxfwul (%d per run):    %.1f ms per request\n", n, p / 1e6
  printf "ratio: %.3f (%d rounds)\n", p / b, r
}'
