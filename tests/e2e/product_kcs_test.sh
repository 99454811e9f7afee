#!/usr/bin/env bash
# The real vrxfwul in KCS mode, through the test build of libopenraw.so, against
# the simulated BMC: a remote URI update that waits for the BMC to come back,
# the inventory, the refusal of firmware 1.41 on a Z3100, search failures.
set -uo pipefail
source "$(dirname "$0")/lib.sh"
e2e_enter_sim --servers "http" \
  --bmc "set validate_ms 300" --bmc "set program_ms 1000" \
  --bmc "set reset_down_ms 2000"
[ -x "$VRXFWUL" ] || { echo "SKIP: $VRXFWUL not built" >&2; [ "${VRX_E2E_REQUIRED:-}" = 1 ] && exit 1; exit 77; }

CR=$'\r'
export LD_LIBRARY_PATH=$VRX_SIM_LIBDIR VRX_KCS_SIM_TIMEOUT_MS=500
# Short waits: the BMC is asked after 4 s and then every second.
printf 'FwRebootWaitingTime = 8\nIPMICommandRetry = 1\n' >bmcfwu.cfg

vrx-mkimage -o "$VRX_SIM_FILES/fw.bin" -v 1.52.7 -s 50000
run_vrx -e=0 -uri="$VRX_SIM_HTTP/fw.bin" -D=0 -f
check_eq "update: exit status" 0 "$RC"
check_eq "update: nothing on standard error" "" "$ERR"
check_contains "update: completed" "$CR   Firmware Update Status: Completed 100 percent"$'\n' "$OUT"
check_contains "update: waits for the BMC" "Checking new firmware version ..." "$OUT"
check_ends_with "update: version after the reset" \
  "$CR   BMC Firmware Version: 1.52.7 "$'\n'"   Firmware Update Successfully"$'\n' "$OUT"
check_contains "update: went through the system interface" "req ch=15 08 01 01 80" "$(cat "$VRX_SIM_LOG")"
check_eq "update: nothing over LAN but the harness probe" "" \
  "$(grep 'req ch=1 ' "$VRX_SIM_LOG" | grep -v ' 06 01$\| 2c \| 06 3[bc] ')"

run_vrx -xml
check_eq "-xml: exit status" 0 "$RC"
check_eq "-xml: new version" "$(inventory_xml 1.52)" "${OUT%$'\n'}"

# Firmware 1.41: the product name decides.
bmc set version 1 0x41 0
bmc set product_name Stratovex Z3100 2U
run_vrx -e=0 -uri="$VRX_SIM_HTTP/fw.bin" -D=0 -f
check_eq "1.41 Z3100: exit status Device Not Found" 6 "$RC"
check_eq "1.41 Z3100: refusal and return code" \
  $'\n\n'"   Stratovex version 1.41 does not support firmware update via VRXFWU utility,"$'\n'"   please use SOCFLASH utility to update firmware."$'\n'"   Device Not Found"$'\n' "$ERR"
check_not_contains "1.41 Z3100: no update started" "req ch=15 08 01 01" \
  "$(grep -v '08 01 01 80' "$VRX_SIM_LOG")"
check_contains "1.41 Z3100: the FRU was read" "req ch=15 0a 11 00 00 00 08" "$(cat "$VRX_SIM_LOG")"
bmc set product_name Stratovex S2600
run_vrx -xml
check_eq "1.41 other product: accepted" "$(inventory_xml 1.41)" "${OUT%$'\n'}"

# Search failures.
bmc fault 6 1 drop always
run_vrx -xml
check_eq "silent BMC: exit status" 6 "$RC"
check_eq "silent BMC: empty inventory" \
  '<?xml version="1.0" encoding="UTF-8" ?>'$'\n''<SVMInventory lang="en"/>' "${OUT%$'\n'}"
run_vrx -e=0 -uri="$VRX_SIM_HTTP/fw.bin" -D=0 -f
check_eq "silent BMC: exit status without XML" 6 "$RC"
check_ends_with "silent BMC: return code lines" "   Device Not Found"$'\n'"   Retry Limit Reached"$'\n' "$ERR"
bmc fault 6 1 cc 0xc0 always
run_vrx -e=0 -uri="$VRX_SIM_HTTP/fw.bin" -D=0 -f
check_eq "busy BMC: exit status" 6 "$RC"
check_ends_with "busy BMC: return code lines" "   Device Not Found"$'\n'"   Retry Limit Reached"$'\n' "$ERR"
bmc fault clear
LD_LIBRARY_PATH=/nonexistent run_vrx -e=0 -uri="$VRX_SIM_HTTP/fw.bin" -D=0 -f
check_eq "no raw-access library: exit status" 12 "$RC"
check_ends_with "no raw-access library: message" "   Failed to Load Library"$'\n' "$ERR"
e2e_finish
