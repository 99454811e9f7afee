#!/usr/bin/env bash
# BIOS firmware (-e=1) through a superfloppy stick (FAT on the whole device,
# no partition table): the program mounts the disk itself.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout superfloppy" --bmc "set validate_ms 500" \
  --bmc "set program_ms 2000" --bmc "set reset_down_ms 3000"

vrx-mkimage -o bios.bin -v 3.01.4 -p 2 >/dev/null
fs_file bios.bin
fs_guest <<'GUEST'
run_program -e=1 -i=/scenario/bios.bin -f
report_state
GUEST
fs_boot

check_eq "exit status" 0 "$(fs_value rc)"
out=$(fs_section stdout)
check_contains "success line" "Firmware Update Successfully" "$out"
check_contains "BIOS version line" "BIOS Firmware Version:" "$out"
check_contains "the BMC was asked for the BIOS (target 0x81)" "req ch=15 08 01 03 81" "$(cat "$VRX_SIM_LOG")"
check_eq "the image read back is the file" "same" \
  "$(cmp -s bios.bin "$(fs_readback)" && echo same || echo differs)"
check_contains "the superfloppy is mounted as a whole disk" "Mount /dev/sdb /media/scrtch OK" "$(fs_section log)"
fs_check_clean
fs_times
e2e_finish
