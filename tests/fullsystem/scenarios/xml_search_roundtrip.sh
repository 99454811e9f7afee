#!/usr/bin/env bash
# The BMC search and -xml over the open library, and the round trip of one
# request: through the guest's kernel driver and QEMU's KCS interface, and
# (before the guest starts) through the simulator's own test library.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set version 1 0x52 7"

bench=$VRX_BUILD_DIR/tests/openraw/openraw_bench
host_rt=$(VRX_KCS_SIM_PORT=$VRX_KCS_SIM_PORT "$bench" "$VRX_SIM_LIBDIR/libopenraw.so" 200)
check_contains "round trip through the simulator's library" "failures=0" "$host_rt"
mkdir -p "$FS_WORK/overlay/usr/local/bin"
cp "$bench" "$FS_WORK/overlay/usr/local/bin/"
fs_guest <<'GUEST'
run_program -xml
report_state
mark "bench-begin"
openraw_bench /usr/local/lib*/vrxfwul/libopenraw.so 200
mark "bench-end"
GUEST
fs_boot

check_eq "exit status" 0 "$(fs_value rc)"
xml=$(fs_section stdout)
check_contains "XML inventory" "<SVMInventory" "$xml"
check_contains "the BMC's version in it, read through the open library" "1.52" "$xml"
guest_rt=$(fs_section bench)
check_contains "round trip through the open library in the guest" "failures=0" "$guest_rt"
fs_check_clean
echo "TIMES roundtrip simulator-library: $host_rt"
echo "TIMES roundtrip guest-open-library: $guest_rt"
fs_times
e2e_finish
