#!/usr/bin/env bash
# An image of 32 MiB onto a 64 MiB partitioned stick, read back identical;
# the guest times the program's copy.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout partitioned" --bmc "set validate_ms 500" \
  --bmc "set program_ms 2000" --bmc "set reset_down_ms 3000"

vrx-mkimage -o big.bin -v 2.08.0 -p 3 -s $((32 * 1024 * 1024)) >/dev/null
fs_file big.bin
fs_guest <<'GUEST'
start_program -e=0 -i=/scenario/big.bin -f
wait_for 120 copying && mark "copy-start $(now)"
wait_for 120 grep -q "Uploading Firmware Image OK" /tmp/vrx.out && mark "copy-end $(now)"
finish_program
report_state
GUEST
fs_boot 400

check_eq "exit status" 0 "$(fs_value rc)"
check_contains "version line" "BMC Firmware Version: 2.08.0" "$(fs_section stdout)"
check_eq "the 32 MiB image read back is the file" "same" \
  "$(cmp -s big.bin "$(fs_readback)" && echo same || echo differs)"
fs_check_clean
size=$(stat -c %s big.bin)
echo "TIMES copy: $size bytes in $(python3 -c "print(round($(fs_value copy-end) - $(fs_value copy-start), 2))") s (program, 50 ms resolution)"
fs_times
e2e_finish
