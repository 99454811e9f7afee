#!/usr/bin/env bash
# The BMC stays silent for 30 s after its cold reset; on the kernel driver
# every unanswered request costs seconds (QEMU gives up after 4 s), and the
# program's reset wait still sees it come back.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set validate_ms 500" --bmc "set program_ms 1000" \
  --bmc "set reset_down_ms 30000"

vrx-mkimage -o image.bin -v 2.09.1 -p 3 >/dev/null
fs_file image.bin
fs_guest <<'GUEST'
run_program -e=0 -i=/scenario/image.bin -f
report_state
GUEST
fs_boot

check_eq "exit status" 0 "$(fs_value rc)"
check_contains "version line after the silence" "BMC Firmware Version: 2.09.1" "$(fs_section stdout)"
log=$(cat "$VRX_SIM_LOG")
check_contains "requests were dropped while the BMC was down" "drop ch=15 06 01" "$log"
fs_check_clean
fs_times
e2e_finish
