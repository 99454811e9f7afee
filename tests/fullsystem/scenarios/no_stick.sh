#!/usr/bin/env bash
# The BMC reports its stick ready but none ever appears on the host.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter
bmc set hook /bin/true >/dev/null

vrx-mkimage -o image.bin -v 2.07.3 -p 3 >/dev/null
fs_file image.bin
fs_guest <<'GUEST'
run_program -e=0 -i=/scenario/image.bin -f
report_state
GUEST
fs_boot

check_eq "exit status (Detect Virtual USB Device Failed)" 21 "$(fs_value rc)"
check_contains "message" "USB Device is not found" "$(fs_section stderr)"
check_contains "return-code lines" "   Detect Virtual USB Device Failed"$'\n'"   Retry Limit Reached" "$(fs_section stderr)"
fs_check_clean
fs_times
e2e_finish
