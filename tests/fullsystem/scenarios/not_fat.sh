#!/usr/bin/env bash
# A stick without a FAT file system: fdisk -l finds it, mount fails.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout blank"

vrx-mkimage -o image.bin -v 2.07.3 -p 3 >/dev/null
fs_file image.bin
fs_guest <<'GUEST'
run_program -e=0 -i=/scenario/image.bin -f
report_state
GUEST
fs_boot

check_eq "exit status (Detect Virtual USB Device Failed)" 21 "$(fs_value rc)"
check_contains "message" "USB Device is not found" "$(fs_section stderr)"
check_contains "mount's own complaint" "mount" "$(fs_section stdout)$(fs_section stderr)"
# A failed mount removes the scratch directory the run made for it.
fs_check_clean
fs_times
e2e_finish
