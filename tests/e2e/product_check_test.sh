#!/usr/bin/env bash
# -check against the simulated BMC, over the LAN with the real ipmitool and
# over the system interface: its verdicts and exit statuses, and the BMC's
# request log, which must hold nothing but reads for every check run.
set -uo pipefail
source "$(dirname "$0")/lib.sh"
e2e_enter_sim --servers "http" \
  --bmc "set validate_ms 300" --bmc "set program_ms 5000" \
  --bmc "set reset_down_ms 1500"
[ -x "$VRXFWUL" ] || { echo "SKIP: $VRXFWUL not built" >&2; [ "${VRX_E2E_REQUIRED:-}" = 1 ] && exit 1; exit 77; }

mapfile -t lan < <(lan_args lan)
vrx-mkimage -o "$VRX_SIM_FILES/fw.bin" -v 1.60.2 -s 40000
uri="$VRX_SIM_HTTP/fw.bin"
printf 'IPMICommandRetry = 1\nFwRebootWaitingTime = 8\n' >bmcfwu.cfg

log_mark() { wc -l <"$VRX_SIM_LOG"; }
# Requests after log line $1 that are not reads (identity, versions, task,
# update status, FRU, settings reads) or the LAN session's own handshake.
changes_since() {
  tail -n +"$(($1 + 1))" "$VRX_SIM_LOG" | grep 'req ch=' |
    grep -v -E 'req ch=[0-9]+ (06 (01|38|39|3a|3b|3c|54)|08 (02|12|13)|08 01 aa|0a (10|11)|30 (02|05)|2c)( |$)'
}

# An idle BMC: every check passes, nothing is changed.
mark=$(log_mark)
run_vrx -check -e=0 -uri="$uri" "${lan[@]}"
check_eq "LAN check, idle BMC: exit status" 0 "$RC"
check_eq "LAN check, idle BMC: nothing on standard error" "" "$ERR"
check_contains "LAN check: BMC identified" "   BMC                  : OK, Stratovex, type 0xAE, firmware " "$OUT"
check_contains "LAN check: no task" "   Update task          : OK, none under way" "$OUT"
check_contains "LAN check: URI" "   URI                  : OK, $uri, " "$OUT"
check_contains "LAN check: verdict" "   Check passed: the update would go ahead" "$OUT"
check_eq "LAN check: only reads reached the BMC" "" "$(changes_since "$mark")"
check_contains "LAN check: it did ask the BMC" "req ch=1 08 01 aa 03" "$(tail -n +"$((mark + 1))" "$VRX_SIM_LOG")"

# The same in XML: one well-formed document, nothing else on standard output.
run_vrx -check -xml -e=0 -uri="$uri" "${lan[@]}"
check_eq "LAN check -xml: exit status" 0 "$RC"
check_eq "LAN check -xml: well-formed, passed" "pass 6" \
  "$(printf '%s' "$OUT" | python3 -c 'import sys, xml.etree.ElementTree as E; r = E.fromstring(sys.stdin.read()); print(r.get("result"), len(r))')"

# While another run updates this BMC: the lock and the task say so.
ups=$(resets_done)
"$VRXFWUL" -e=0 -uri="$uri" -D=0 -f "${lan[@]}" >first.out 2>first.err </dev/null &
first=$!
for ((i = 0; i < 150; i++)); do
  grep -q "Firmware Update Status" first.out 2>/dev/null && break
  sleep 0.1
done
mark=$(log_mark)
run_vrx -check -e=0 -uri="$uri" "${lan[@]}"
check_eq "check during an update: exit status 13" 13 "$RC"
check_contains "check during an update: the lock" \
  "   Lock                 : FAILED, another vrxfwul run is updating this BMC ($VRXFWUL_LOCK_DIR/vrxfwul-lan-$VRX_SIM_HOST.lock)" "$OUT"
check_contains "check during an update: the task" "   Update task          : FAILED, task " "$OUT"
check_eq "check during an update: only reads" "" "$(changes_since "$mark")"
wait "$first"
check_eq "the update beside the check: completes" 0 "$?"
wait_reset_after "$ups" 15 || fail "BMC did not come back"

# Over the system interface with an image file for the virtual-USB update.
export LD_LIBRARY_PATH=$VRX_SIM_LIBDIR VRX_KCS_SIM_TIMEOUT_MS=500
vrx-mkimage -o fw-usb.bin -v 1.70.1 -s 60000
mark=$(log_mark)
run_vrx -check -e=0 -i=fw-usb.bin
check_contains "KCS check: image" "   Image file           : OK, fw-usb.bin, " "$OUT"
check_contains "KCS check: version rule" "   Version              : OK, update 1.60.2 -> 1.70.1" "$OUT"
check_contains "KCS check: scratch directory" "   Scratch directory    : OK, " "$OUT"
check_eq "KCS check: exit status" 0 "$RC"
check_eq "KCS check: only reads" "" "$(changes_since "$mark")"
check_contains "KCS check: through the system interface" "req ch=15 08 01 aa 03" "$(tail -n +"$((mark + 1))" "$VRX_SIM_LOG")"

cp fw-usb.bin bad.bin
printf '\x07' | dd of=bad.bin bs=1 seek=40 conv=notrunc 2>/dev/null
run_vrx -check -e=0 -i=bad.bin
check_eq "KCS check, damaged header: exit status 4" 4 "$RC"
check_contains "KCS check, damaged header: reason" "   Image file           : FAILED, bad.bin: invalid head CRC" "$OUT"

run_vrx -check -e=0 -i=fw-usb.bin -H=127.0.0.1 -U=admin -P=x
check_eq "LAN check with -i: refused as for an update" 8 "$RC"

e2e_finish
