#!/usr/bin/env bash
# Another process has its working directory in the scratch directory when
# the program unmounts, so umount answers "target is busy": the image on the
# stick is left alone, the program names the device, the directory and how
# to release it, and fails with the release's code. The same guest then
# times cp of the same 32 MiB file onto the still-mounted stick.
set -uo pipefail
source "$(dirname "$0")/../lib.sh"
fs_enter --bmc "set usb_layout partitioned"

vrx-mkimage -o big.bin -v 2.08.0 -p 3 -s $((32 * 1024 * 1024)) >/dev/null
fs_file big.bin
fs_guest <<'GUEST'
start_program -e=0 -i=/scenario/big.bin -f
wait_for 120 copying && mark "copy-start $(now)"
(cd /media/scrtch && exec sleep 600) &
busy=$!
wait_for 120 grep -q "Uploading Firmware Image OK" /tmp/vrx.out && mark "copy-end $(now)"
finish_program
report_state
cmp /scenario/big.bin /media/scrtch/firmimg.k9 && mark "stick-image intact"
rm -f /media/scrtch/firmimg.k9
sync
t0=$(now); cp /scenario/big.bin /media/scrtch/cp.bin; t1=$(now); sync; t2=$(now)
mark "cp $t0 $t1 $t2"
kill $busy
wait $busy 2>/dev/null
umount /media/scrtch && rmdir /media/scrtch && mark "released by hand"
GUEST
fs_boot 400

check_eq "exit status (vMedia detachment failed)" 16 "$(fs_value rc)"
err=$(fs_section stderr)
check_contains "names the device, the directory and the release" \
  "/dev/sdb1 is still mounted on /media/scrtch; release it with: umount /media/scrtch" "$err"
check_contains "return-code line" "   vMedia detachment failed" "$err"
check_contains "still mounted after the run" "/dev/sdb1 /media/scrtch vfat" "$(fs_section mounts)"
check_contains "the image on the stick is not erased" "VRXGUEST stick-image intact" "$FS_CONSOLE"
check_contains "released by hand afterwards" "VRXGUEST released by hand" "$FS_CONSOLE"
read -r _ _ t0 t1 t2 < <(grep '^VRXGUEST cp ' <<<"$FS_CONSOLE")
size=$(stat -c %s big.bin)
python3 - "$size" "$(fs_value copy-start)" "$(fs_value copy-end)" "$t0" "$t1" "$t2" <<'PY'
import sys
size, cs, ce, t0, t1, t2 = (float(x) for x in sys.argv[1:])
mib = size / 1048576
print("TIMES copy onto the stick: program %.1f MiB in %.2f s = %.1f MiB/s; "
      "cp %.2f s = %.1f MiB/s; cp+sync %.2f s = %.1f MiB/s"
      % (mib, ce - cs, mib / max(ce - cs, 0.05), t1 - t0, mib / max(t1 - t0, 0.01),
         t2 - t0, mib / max(t2 - t0, 0.01)))
PY
fs_times
e2e_finish
