#!/usr/bin/env bash
# A stick that writes at 3 MiB/s, with the guest's dirty-page limit low so
# that the program's writes wait for the stick: the update still completes.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout partitioned" --bmc "set validate_ms 500" \
  --bmc "set program_ms 1000" --bmc "set reset_down_ms 3000"
fs_slow_stick $((3 * 1024 * 1024))

vrx-mkimage -o image.bin -v 2.07.5 -p 3 -s $((12 * 1024 * 1024)) >/dev/null
fs_file image.bin
fs_guest <<'GUEST'
echo 1048576 >/proc/sys/vm/dirty_bytes
start_program -e=0 -i=/scenario/image.bin -f
wait_for 120 copying && mark "copy-start $(now)"
wait_for 120 grep -q "Uploading Firmware Image OK" /tmp/vrx.out && mark "copy-end $(now)"
finish_program
report_state
GUEST
fs_boot

check_eq "exit status" 0 "$(fs_value rc)"
check_contains "version line" "BMC Firmware Version: 2.07.5" "$(fs_section stdout)"
check_eq "the image read back is the file" "same" \
  "$(cmp -s image.bin "$(fs_readback)" && echo same || echo differs)"
fs_check_clean
echo "TIMES slow stick copy: $(python3 -c "print(round($(fs_value copy-end) - $(fs_value copy-start), 2))") s for 12 MiB at 3 MiB/s"
fs_times
e2e_finish
