#!/usr/bin/env bash
# Customer defaults (-e=5), partitioned stick: the update, then the reset to
# defaults that this entity asks for, then the cold reset.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout partitioned" --bmc "set validate_ms 500" \
  --bmc "set program_ms 1000" --bmc "set reset_down_ms 3000" \
  --bmc "set reset_default_ms 1500"

vrx-mkimage -o custdef.bin -v 1.10.2 -p 1 >/dev/null
fs_file custdef.bin
fs_guest <<'GUEST'
run_program -e=5 -i=/scenario/custdef.bin -f
report_state
GUEST
fs_boot

check_eq "exit status" 0 "$(fs_value rc)"
out=$(fs_section stdout)
check_contains "success line" "Firmware Update Successfully" "$out"
check_contains "reset to defaults" "Reset To Default" "$out"
check_eq "reset to defaults asked once" "1" "$(grep -c 'req ch=15 30 04 ff' "$VRX_SIM_LOG")"
check_eq "the image read back is the file" "same" \
  "$(cmp -s custdef.bin "$(fs_readback)" && echo same || echo differs)"
fs_check_clean
fs_times
e2e_finish
