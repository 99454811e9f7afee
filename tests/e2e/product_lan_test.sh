#!/usr/bin/env bash
# The real vrxfwul over the LAN with Debian's ipmitool against the simulated
# BMC: remote URI updates from HTTP, TFTP and FTP over IPMI 1.5 ("lan") and
# RMCP+ ("lanplus", cipher 3), the inventory and the XML result document.
set -uo pipefail
source "$(dirname "$0")/lib.sh"
e2e_enter_sim --servers "http tftp ftp" \
  --bmc "set validate_ms 300" --bmc "set program_ms 1500" \
  --bmc "set reset_down_ms 1500"
[ -x "$VRXFWUL" ] || { echo "SKIP: $VRXFWUL not built" >&2; [ "${VRX_E2E_REQUIRED:-}" = 1 ] && exit 1; exit 77; }

CR=$'\r'
minor=60
for iface in "lan" "lanplus 3"; do
  for proto in http tftp ftp; do
    minor=$((minor + 1))
    name="$proto-$minor.bin"
    vrx-mkimage -o "$VRX_SIM_FILES/$name" -v "1.$minor.4" -s 30000
    base=VRX_SIM_${proto^^}
    mapfile -t lan < <(lan_args $iface)
    what="$iface $proto"
    start=$SECONDS
    ups=$(resets_done)
    run_vrx -e=0 -uri="${!base}/$name" -D=0 -f "${lan[@]}"
    echo "$what: update took $((SECONDS - start)) s"
    check_eq "$what: exit status" 0 "$RC"
    check_eq "$what: nothing on standard error" "" "$ERR"
    check_contains "$what: enable" "$CR   Remote Update Enable OK"$'\n' "$OUT"
    check_contains "$what: URI" "$CR   Assign Remote Update URI OK"$'\n' "$OUT"
    check_contains "$what: delay" "$CR   Assign Remote Update Delay Time OK"$'\n' "$OUT"
    check_contains "$what: programming shown" "Firmware Update Status: Programming " "$OUT"
    check_ends_with "$what: completion, cold reset without waiting" \
      "$CR   Firmware Update Status: Completed 100 percent"$'\n'"   Cold Reset : Done"$'\n'"   Firmware Update Successfully"$'\n' "$OUT"
    wait_reset_after "$ups" 15 || fail "$what: BMC did not come back"
    run_vrx -xml "${lan[@]}"
    check_eq "$what: inventory exit status" 0 "$RC"
    check_eq "$what: inventory shows the new version" "$(inventory_xml "1.$minor")" "${OUT%$'\n'}"
  done
done

# The XML result document: printed before the reset, while the BMC still
# runs the firmware it had.
minor=$((minor + 1))
vrx-mkimage -o "$VRX_SIM_FILES/fml.bin" -v "1.$minor.0"
mapfile -t lan < <(lan_args lan)
ups=$(resets_done)
run_vrx -fml -e=0 -uri="$VRX_SIM_HTTP/fml.bin" -D=0 "${lan[@]}"
check_eq "-fml: exit status" 0 "$RC"
expected=$(printf '%s\n' '<?xml version="1.0" encoding="UTF-8" ?>' \
  '<SVMExecution lang="en">' \
  '   <Device componentID="5814" display="BMC Firmware">' \
  "      <Application componentType=\"FRMW\" version=\"1.$((minor - 1))\" display=\"BMC Firmware\">" \
  '         <SPStatus result="true">' \
  '            <Message id="0" >Update Successful.</Message>' \
  '         </SPStatus>' '      </Application>' '   </Device>' '</SVMExecution>')
check_eq "-fml: success document" "$expected" "${OUT%$'\n'}"
wait_reset_after "$ups" 15 || fail "BMC did not come back after -fml"
run_vrx -xml "${lan[@]}"
check_eq "-fml: new version afterwards" "$(inventory_xml "1.$minor")" "${OUT%$'\n'}"
check_eq "requests went over LAN only" "0" "$(grep -c 'req ch=15' "$VRX_SIM_LOG")"
e2e_finish
