#!/usr/bin/env bash
# The stick is pulled while the program copies onto it (a slow stick and a
# low dirty-page limit keep the copy going for seconds): a clear failure,
# no hang, nothing left mounted.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout partitioned"
fs_slow_stick $((2 * 1024 * 1024))

vrx-mkimage -o image.bin -v 2.07.5 -p 3 -s $((16 * 1024 * 1024)) >/dev/null
fs_file image.bin
fs_guest <<'GUEST'
echo 1048576 >/proc/sys/vm/dirty_bytes
start_program -e=0 -i=/scenario/image.bin -f
wait_for 120 copying && mark "yank at $(now)"
finish_program
report_state
GUEST
fs_boot

rc=$(fs_value rc)
check_eq "the program failed" "yes" "$([ -n "$rc" ] && [ "$rc" != 0 ] && echo yes || echo "no ($rc)")"
check_contains "the stick was pulled mid-copy" "yank (mid-copy) ok" "$(cat "$FS_WORK/stick.log")"
fs_check_clean
echo "TIMES pulled mid-copy: exit status $rc; last stderr lines: $(fs_section stderr | tail -n 3 | tr '\n' '|')"
fs_times
e2e_finish
