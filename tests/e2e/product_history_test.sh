#!/usr/bin/env bash
# The update history against the simulated BMC over the LAN with the real
# ipmitool: one record per run that changed the BMC, none for reads, an
# interrupted run recorded as such, and -history reading it all back.
set -uo pipefail
source "$(dirname "$0")/lib.sh"
e2e_enter_sim --servers "http" \
  --bmc "set validate_ms 300" --bmc "set program_ms 4000" \
  --bmc "set reset_down_ms 1500"
[ -x "$VRXFWUL" ] || { echo "SKIP: $VRXFWUL not built" >&2; [ "${VRX_E2E_REQUIRED:-}" = 1 ] && exit 1; exit 77; }

mapfile -t lan < <(lan_args lan)
vrx-mkimage -o "$VRX_SIM_FILES/fw.bin" -v 1.61.0 -s 30000
uri="$VRX_SIM_HTTP/fw.bin"
H=$VRXFWUL_HISTORY_FILE
records() { [ -f "$H" ] && wc -l <"$H" || echo 0; }

run_vrx -xml "${lan[@]}"
before=$(printf '%s' "$OUT" | python3 -c 'import sys, xml.etree.ElementTree as T
print(T.fromstring(sys.stdin.read()).find(".//Application").get("version"))')
run_vrx -check -e=0 -uri="$uri" "${lan[@]}"
check_eq "reads only: no history yet" 0 "$(records)"

# A whole update: one record.
ups=$(resets_done)
run_vrx -e=0 -uri="$uri" -D=0 -f "${lan[@]}"
check_eq "update: exit status" 0 "$RC"
check_eq "update: one record" 1 "$(records)"
check_eq "update: the history is private" 600 "$(stat -c %a "$H")"
IFS=$'\t' read -r v time target entity kind source sha b a code secs sig <"$H"
check_eq "update: record fields" \
  "1|lan:$VRX_SIM_HOST|0|uri|$uri|-|$before|0|-" \
  "$v|$target|$entity|$kind|$source|$sha|$b|$code|$sig"
check_eq "update: time in UTC" 1 "$([[ $time =~ ^20[0-9]{2}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z$ ]] && echo 1)"
wait_reset_after "$ups" 15 || fail "BMC did not come back"

# A run stopped by SIGTERM while the BMC programs.
"$VRXFWUL" -e=0 -uri="$uri" -D=0 -f "${lan[@]}" >killed.out 2>killed.err </dev/null &
victim=$!
for ((i = 0; i < 150; i++)); do
  grep -q "Firmware Update Status" killed.out 2>/dev/null && break
  sleep 0.1
done
kill -TERM "$victim"
wait "$victim"
check_eq "killed run: exit status 143" 143 "$?"
check_eq "killed run: a second record" 2 "$(records)"
check_eq "killed run: it says interrupted" "143 SIGTERM" \
  "$(tail -n 1 "$H" | awk -F'\t' '{print $10, $12}')"
sleep 5  # the BMC finishes the task it was given

# The history reads back whole: two rows, nothing malformed.
run_vrx -history
check_eq "-history: exit status" 0 "$RC"
check_contains "-history: the update" "  lan:$VRX_SIM_HOST      0  " "$OUT"
check_contains "-history: the interrupted run" "    143  " "$OUT"
check_not_contains "-history: nothing malformed" "malformed" "$OUT"
run_vrx -history -xml
check_eq "-history -xml: two updates" "2 SIGTERM" \
  "$(printf '%s' "$OUT" | python3 -c 'import sys, xml.etree.ElementTree as T
r = T.fromstring(sys.stdin.read()); u = r.findall("Update"); print(len(u), u[-1].get("interrupted"))')"

# A history file that is not ours is left alone and the run is unchanged.
chmod 0666 "$H"
cp "$H" before.copy
run_vrx -e=0 -uri="$uri" -D=0 -f "${lan[@]}"
check_eq "bad history: the update still succeeds" 0 "$RC"
check_contains "bad history: reported" "   Update history not written: $H: may be written by others" "$ERR"
check_eq "bad history: left as it was" "" "$(cmp before.copy "$H")"

e2e_finish
