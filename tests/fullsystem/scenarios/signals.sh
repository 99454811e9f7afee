#!/usr/bin/env bash
# Signals as a terminal sends them, to the program's process group inside
# the guest: ^C during the mount, during the copy and during the unmount,
# and SIGTERM during the copy. Each time the stick is released, the message
# names the signal and the exit status is 128 + its number; then a full
# update in the same guest succeeds. (The BMC pulls an abandoned stick when
# the next update starts.)
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout partitioned" --bmc "set usb_restart 1" \
  --bmc "set validate_ms 500" --bmc "set program_ms 1000" \
  --bmc "set reset_down_ms 3000"
fs_slow_stick $((2 * 1024 * 1024))

vrx-mkimage -o image.bin -v 2.10.4 -p 3 -s $((8 * 1024 * 1024)) >/dev/null
fs_file image.bin
fs_guest <<'GUEST'
# A slow stick and a low dirty-page limit keep the copy going for seconds.
echo 1048576 >/proc/sys/vm/dirty_bytes
# mount and umount that first send the signal named in /tmp/signal-in-NAME
# to the program's group (they run in a group of their own, as the
# program starts every child).
for tool in mount umount; do
  cat >/usr/local/sbin/$tool <<WRAP
#!/bin/sh
if [ -f /tmp/signal-in-$tool ]; then
  sig=\$(cat /tmp/signal-in-$tool)
  rm -f /tmp/signal-in-$tool
  echo "VRXGUEST signal \$sig in $tool at \$(cut -d' ' -f1 /proc/uptime)"
  kill -\$sig -\$(cat /tmp/vrx.pgid)
fi
exec /usr/bin/$tool "\$@"
WRAP
  chmod 755 /usr/local/sbin/$tool
done

tag=mount-
echo INT >/tmp/signal-in-mount
run_program -e=0 -i=/scenario/image.bin -f
report_state

tag=copy-
start_program -e=0 -i=/scenario/image.bin -f
wait_for 120 copying && signal_group INT
finish_program
report_state

tag=umount-
echo INT >/tmp/signal-in-umount
run_program -e=0 -i=/scenario/image.bin -f
report_state

tag=term-
start_program -e=0 -i=/scenario/image.bin -f
wait_for 120 copying && signal_group TERM
finish_program
report_state

rm -f /usr/local/sbin/mount /usr/local/sbin/umount
tag=final-
run_program -e=0 -i=/scenario/image.bin -f
report_state
GUEST
fs_boot 480

for c in mount:SIGINT:130 copy:SIGINT:130 umount:SIGINT:130 term:SIGTERM:143; do
  IFS=: read -r tag sig code <<<"$c"
  check_eq "$tag: exit status 128 + signal" "$code" "$(fs_value "$tag-rc")"
  check_contains "$tag: the message names the signal" "   Interrupted by $sig: " \
    "$(fs_section "$tag-stderr")"
  fs_check_clean "$tag-"
done
check_contains "the signals came where meant" "signal INT in mount" "$FS_CONSOLE"
check_contains "the signals came where meant (umount)" "signal INT in umount" "$FS_CONSOLE"
check_eq "then a full update succeeds" 0 "$(fs_value final-rc)"
check_contains "with the new version" "BMC Firmware Version: 2.10.4" "$(fs_section final-stdout)"
check_eq "the image read back is the file" "same" \
  "$(cmp -s image.bin "$(fs_readback)" && echo same || echo differs)"
fs_check_clean final-
for tag in mount copy umount term; do
  echo "TIMES signals $tag: $(fs_section "$tag-stderr" | grep 'Interrupted by')"
done
fs_times
e2e_finish
