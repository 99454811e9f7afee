#!/usr/bin/env bash
# The real vrxfwul against a misbehaving simulated BMC: a completion code on
# the enable step, a URI that is not there, an unreachable server with
# retries, a bad image, and a BMC that does not come back from its reset.
set -uo pipefail
source "$(dirname "$0")/lib.sh"
e2e_enter_sim --servers "http ftp" \
  --bmc "set validate_ms 300" --bmc "set program_ms 1000" \
  --bmc "set reset_down_ms 1500" --bmc "set fetch_timeout_s 2"
[ -x "$VRXFWUL" ] || { echo "SKIP: $VRXFWUL not built" >&2; [ "${VRX_E2E_REQUIRED:-}" = 1 ] && exit 1; exit 77; }

CR=$'\r'
printf 'PhaseOneWaitingTime = 2\nFwRebootWaitingTime = 5\nIPMICommandRetry = 1\n' >bmcfwu.cfg
mapfile -t lan < <(lan_args lan)
vrx-mkimage -o "$VRX_SIM_FILES/fw.bin" -v 1.52.7
vrx-mkimage -o "$VRX_SIM_FILES/bad.bin" -v 1.53.0 --bad-crc

# The BMC refuses to store the enable setting.
bmc fault 0x30 0x03 cc 0xc0 always
run_vrx -e=0 -uri="$VRX_SIM_HTTP/fw.bin" -D=0 -f "${lan[@]}"
bmc fault clear
check_eq "enable refused: exit status" 35 "$RC"
check_contains "enable refused: ipmitool's error shown" \
  $'\n'"   Unable to send RAW command (channel=0x0 netfn=0x30 lun=0x0 cmd=0x3 rsp=0xc0): Node busy"$'\n' "$ERR"
check_ends_with "enable refused: return code lines" \
  "   Remote Update Enable Failed"$'\n'"   Timeout Limit Reached"$'\n' "$ERR"
check_not_contains "enable refused: no update started" "req ch=1 08 01 01" "$(cat "$VRX_SIM_LOG")"

# A file that is not on the server.
run_vrx -e=0 -uri="$VRX_SIM_HTTP/missing.bin" -D=0 -f "${lan[@]}"
check_eq "missing file: exit status" 20 "$RC"
check_contains "missing file: BMC's reason" "$CR   Firmware Update Status: Path Not Found" "$OUT"
check_eq "missing file: return code line" "   Firmware Update Failed"$'\n' "$ERR"
check_not_contains "missing file: no reset" "event cold reset" "$(cat "$VRX_SIM_LOG")"

# No server at all: the BMC tries three times (two retries, no interval).
run_vrx -e=0 -uri="ftp://127.0.0.1:2121/fw.bin" -D=0 -R=2 -I=0 -f "${lan[@]}"
check_eq "no server: exit status" 20 "$RC"
check_contains "no server: BMC's reason" "$CR   Firmware Update Status: Cannot Establish Connection" "$OUT"
check_eq "no server: three attempts" 3 "$(grep -c 'fetch attempt [0-9] ftp://127.0.0.1:2121' "$VRX_SIM_LOG")"

# KCS from here on.
export LD_LIBRARY_PATH=$VRX_SIM_LIBDIR VRX_KCS_SIM_TIMEOUT_MS=500
run_vrx -e=0 -uri="$VRX_SIM_FTP/bad.bin" -D=0 -f
check_eq "bad image: exit status" 20 "$RC"
check_contains "bad image: BMC's reason" "$CR   Firmware Update Status: Checksum Error" "$OUT"
check_eq "bad image: return code line" "   Firmware Update Failed"$'\n' "$ERR"

bmc set reset_hang 1
run_vrx -e=0 -uri="$VRX_SIM_HTTP/fw.bin" -D=0 -f
check_eq "BMC gone: exit status" 28 "$RC"
check_contains "BMC gone: time-out shown" "$CR   Checking new firmware version timeout  " "$OUT"
check_ends_with "BMC gone: return code lines" \
  "   Get Firmware Version Failed"$'\n'"   Timeout Limit Reached"$'\n' "$ERR"
check_contains "BMC gone: it was reset" "event cold reset" "$(cat "$VRX_SIM_LOG")"
e2e_finish
