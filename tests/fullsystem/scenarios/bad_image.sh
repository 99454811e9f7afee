#!/usr/bin/env bash
# An image whose CRC is wrong: the copy works, the BMC reads it back from
# the stick and reports a checksum error; the guest is left clean.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set validate_ms 500"

vrx-mkimage -o bad.bin -v 2.07.3 -p 3 --bad-crc >/dev/null
fs_file bad.bin
fs_guest <<'GUEST'
run_program -e=0 -i=/scenario/bad.bin -f
report_state
GUEST
fs_boot

check_eq "exit status (Firmware Update Failed)" 20 "$(fs_value rc)"
check_contains "the BMC's verdict" "Checksum Error" "$(fs_section stdout)"
check_contains "return-code line" "   Firmware Update Failed" "$(fs_section stderr)"
check_contains "the BMC failed the task with 0x84" "task failed with 0x84" "$(cat "$VRX_SIM_LOG")"
fs_check_clean
fs_times
e2e_finish
