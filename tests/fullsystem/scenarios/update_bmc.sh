#!/usr/bin/env bash
# The main job for real: -e=0 -i=IMAGE -f over KCS (the open library on the
# kernel's IPMI driver), a partitioned stick plugged by the BMC, found with
# fdisk -l, mounted, checked with df -Th, filled, unmounted; the BMC reads
# the image back from the detached stick and programs it.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout partitioned" --bmc "set validate_ms 500" \
  --bmc "set program_ms 2000" --bmc "set reset_down_ms 3000"

vrx-mkimage -o image.bin -v 2.07.3 -p 3 --bootloader 1.2.3.0,4.5.6.0 >/dev/null
fs_file image.bin
fs_guest <<'GUEST'
run_program -e=0 -i=/scenario/image.bin -f
report_state
GUEST
fs_boot

check_eq "exit status" 0 "$(fs_value rc)"
out=$(fs_section stdout)
check_contains "success line" "Firmware Update Successfully" "$out"
check_contains "version line shows the image's version" "BMC Firmware Version: 2.07.3" "$out"
readback=$(fs_readback)
check_eq "the image read back from the detached stick is the file" "same" \
  "$(cmp -s image.bin "$readback" && echo same || echo "differs ($readback)")"
check_contains "the partition is mounted" "Mount /dev/sdb1 /media/scrtch OK" "$(fs_section log)"
fs_check_clean
check_contains "the stick was plugged and pulled" "detach" "$(cat "$FS_WORK/stick.log")"
fs_times
e2e_finish
