#!/usr/bin/env bash
# The simulated BMC through its system interface, with the test build of
# libopenraw.so, and the BMC's side of a virtual-USB update: it attaches a
# FAT device image, reads firmimg.k9 back with mtools and programs it.
set -uo pipefail
source "$(dirname "$0")/lib.sh"
e2e_enter_sim --servers none \
  --bmc "set validate_ms 200" --bmc "set program_ms 600" \
  --bmc "set reset_down_ms 1500" --bmc "set usb_size_mb 8"

kcs() { /usr/bin/python3 "$E2E_DIR/kcs_raw.py" "$@"; }
export VRX_KCS_SIM_TIMEOUT_MS=700

check_eq "Get Device ID over KCS" "20 01 01 50 02 9f 5e 2b 00 02 0f 00 00 00 00" "$(bytes $(kcs 6 1))"
check_eq "escaped bytes survive (0xA0-0xAA)" "10 01 00 01 aa" \
  "$(res=$(bytes $(kcs 0x30 1)); kcs 0x30 3 0x$res 0x10 1 0 0 0 1 0xaa >/dev/null;
     res=$(bytes $(kcs 0x30 1)); bytes $(kcs 0x30 2 0x$res 0x10 1 0 0 0 1))"
check_eq "completion code comes back" "cc=0xcc" "$(kcs 8 2 0x77)"

# Hook that a full-system harness would use to plug the device into a VM.
cat >"$VRX_SIM_DIR/hook.sh" <<'HOOK'
#!/bin/sh
echo "$1 $2" >>"$(dirname "$0")/hook.log"
HOOK
chmod +x "$VRX_SIM_DIR/hook.sh"
bmc set hook "$VRX_SIM_DIR/hook.sh"

vrx-mkimage -o usb.bin -v 2.05.9 -p 3 --bootloader 1.2.3.0,4.5.6.0
check_eq "image header checked independently (zlib CRC-32, fields)" "ok" \
  "$(/usr/bin/python3 -c '
import sys, zlib
d = open(sys.argv[1], "rb").read()
h = d[:512]
good = (zlib.crc32(h[4:]) == int.from_bytes(h[:4], "little") and h[4] == 1
        and h[6] == 3 and h[8:12] == bytes([2, 0x05, 9, 0]) and h[24:28] == b"WEVB"
        and int.from_bytes(h[12:16], "little") == len(d))
print("ok" if good else "bad")' usb.bin)"
task=$(bytes $(kcs 8 1 3 0x80))
check_eq "USB task started" "01" "$task"
check_eq "At USB Init Stage" "04" "$(bytes $(kcs 8 2 0x$task))"
check_eq "phase 2 before phase 1 refused" "cc=0xd5" "$(kcs 8 4 0 1)"
kcs 8 4 0 0 >/dev/null || fail "phase 1"
for ((i = 0; i < 50; i++)); do
  [ "$(bytes $(kcs 8 2 0x$task))" = 03 ] && break
  sleep 0.1
done
check_eq "Ready to Accept Image" "03" "$(bytes $(kcs 8 2 0x$task))"
device=$(awk '$1 == "attach" {print $2}' hook.log)
check_contains "attach hook ran with the device image" "usb-1.img" "$device"
check_eq "device image holds the announced size" "8388608" "$(stat -c %s "$device")"
MTOOLS_SKIP_CHECK=1 mcopy -i "$device" usb.bin ::firmimg.k9 || fail "mcopy onto the device"
kcs 8 4 0 1 >/dev/null || fail "phase 2"
trail=""
for ((i = 0; i < 60; i++)); do
  answer=$(bytes $(kcs 8 2 0x$task))
  [[ "$trail" == *"$answer"* ]] || trail="$trail|$answer"
  [ "${answer:0:2}" = ff ] && break
  sleep 0.1
done
check_contains "validating, programming, completed" "|01" "$trail"
check_contains "programming percent" "|02 " "$trail"
check_contains "completed" "|ff 64" "$trail"
check_contains "detach hook ran" "detach $device" "$(cat hook.log)"

kcs 6 2 >/dev/null || fail "cold reset over KCS"
sleep 0.5
check_eq "no answer while resetting" "status=3" "$(kcs 6 1)"
for ((i = 0; i < 30; i++)); do kcs 6 1 >/dev/null && break; sleep 0.2; done
check_eq "new version over KCS" "02 05" "$(bytes $(kcs 6 1) | cut -d' ' -f3-4)"
check_eq "bootloader from the image" "01 02 03 00 04 05 06 00" "$(bytes $(kcs 8 0x13 1))"
check_eq "version text" "06 32 2e 30 35 2e 39" "$(bytes $(kcs 8 1 0xaa 2))"

# An empty device: the BMC finds no firmimg.k9.
task=$(bytes $(kcs 8 1 3 0x84))
kcs 8 4 4 0 >/dev/null
for ((i = 0; i < 50; i++)); do
  [ "$(bytes $(kcs 8 2 0x$task))" = 03 ] && break
  sleep 0.1
done
kcs 8 4 4 1 >/dev/null
for ((i = 0; i < 50; i++)); do
  answer=$(bytes $(kcs 8 2 0x$task))
  [ "${answer:0:1}" = 8 ] && break
  sleep 0.1
done
check_eq "no image on the device: Path Not Found" "82" "$answer"

# Fault: the BMC comes back from a reset running another version.
bmc set wrong_version 1 0x99 3
ups=$(resets_done)
bmc set down
wait_reset_after "$ups" 10 || fail "BMC did not come back"
check_eq "wrong version after the reset" "01 99" "$(bytes $(kcs 6 1) | cut -d' ' -f3-4)"
check_contains "KCS requests are logged on channel 15" "req ch=15 08 04 04 01" "$(cat "$VRX_SIM_LOG")"
e2e_finish
