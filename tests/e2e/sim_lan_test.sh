#!/usr/bin/env bash
# The simulated BMC's state machine, driven with bare `ipmitool raw` over
# IPMI 1.5: identity, FRU, extended configuration, network updates from
# HTTP/TFTP/FTP, failures, resets and fault injection.
set -uo pipefail
source "$(dirname "$0")/lib.sh"
e2e_enter_sim --servers "http tftp ftp" \
  --bmc "set validate_ms 300" --bmc "set program_ms 1000" \
  --bmc "set reset_down_ms 1500" --bmc "set reset_default_ms 500" \
  --bmc "set interval_unit_ms 200" --bmc "set fetch_timeout_s 2"

vrx-mkimage -o "$VRX_SIM_FILES/new.bin" -v 1.52.7 -s 20000
vrx-mkimage -o "$VRX_SIM_FILES/ftp.bin" -v 1.53.1
vrx-mkimage -o "$VRX_SIM_FILES/tftp.bin" -v 1.54.2 -s 70000
vrx-mkimage -o "$VRX_SIM_FILES/bad.bin" -v 1.60.0 --bad-crc

# --- identity -------------------------------------------------------------------
check_eq "Get Device ID" "20 01 01 50 02 9f 5e 2b 00 02 0f 00 00 00 00" \
  "$(bytes $(raw 6 1))"
check_eq "version text" "06 31 2e 35 30 2e 30" "$(bytes $(raw 8 1 0xaa 2))"
check_eq "task id before any task" "00" "$(bytes $(raw 8 1 0xaa 3))"
check_eq "firmware version" "01 50 00 00" "$(bytes $(raw 8 0x13 0))"
check_eq "bootloader bytes" "01 00 02 00 02 01 00 00" "$(bytes $(raw 8 0x13 1))"
fru=$(ipmitool -I lan -H "$VRX_SIM_HOST" -U "$VRX_SIM_USER" -P "$VRX_SIM_PASSWORD" fru print 0 2>&1)
check_contains "ipmitool parses the FRU product name" "Product Name          : Stratovex S2600" "$fru"
bmc set product_name Stratovex Z3100 rack
fru=$(ipmitool -I lan -H "$VRX_SIM_HOST" -U "$VRX_SIM_USER" -P "$VRX_SIM_PASSWORD" fru print 0 2>&1)
check_contains "configured product name" "Product Name          : Stratovex Z3100 rack" "$fru"
check_eq "FRU common header" "08 01 00 00 00 01 00 00 fe" "$(bytes $(raw 0x0a 0x11 0 0 0 8))"

# --- extended configuration -----------------------------------------------------
res=$(bytes $(raw 0x30 0x01))
check_eq "Get with a stale reservation" "rsp=0xc5" \
  "$(raw 0x30 0x02 0x$((res - 1)) 0x10 0x01 0 0 0 1 | grep -o 'rsp=0x..')"
set_item 0x01 1
res=$(bytes $(raw 0x30 0x01))
check_eq "enable read back" "10 01 00 01 01" "$(bytes $(raw 0x30 0x02 0x$res 0x10 0x01 0 0 0 1))"
uri="$VRX_SIM_HTTP/new.bin"
set_uri "$uri"
res=$(bytes $(raw 0x30 0x01))
first=$(bytes $(raw 0x30 0x02 0x$res 0x10 0x03 0 0 0 1))
check_eq "URI length byte" "10 03 00 01 $(printf '%02x' ${#uri})" "$first"
chunk=$(bytes $(raw 0x30 0x02 0x$res 0x10 0x03 0 1 0 10))
check_eq "URI first chunk" "10 03 00 0a $(printf '%s' "${uri:0:10}" | od -An -tx1 | xargs)" "$chunk"
check_eq "Set answers the count written" "01" \
  "$(bytes $(raw 0x30 0x03 0x$res 0x10 0x04 0 0 0 1 0))"

# --- network update over HTTP ---------------------------------------------------
task=$(bytes $(raw 8 1 1 0x80))
check_eq "Update Firmware returns task 1" "01" "$task"
check_eq "task id query" "01" "$(bytes $(raw 8 1 0xaa 3))"
check_contains "second start refused while busy" "rsp=0x81" "$(raw 8 1 1 0x80)"
trail=$(wait_status "$task" ff 20)
check_eq "phases of the task" "net-delay net-fetching validating programming done" \
  "$(grep -o 'task 1 phase [a-z-]*' "$VRX_SIM_LOG" | cut -d' ' -f4 | xargs)"
check_contains "programming with a percent" "02 " "$trail"
check_eq "ends Completed 100" "ff 64" "$(echo "$trail" | tail -1)"
check_eq "version unchanged until reset" "01 50" "$(bytes $(raw 6 1) | cut -d' ' -f3-4)"
raw 6 2 >/dev/null
check_contains "Cold Reset is logged" "event cold reset" "$(cat "$VRX_SIM_LOG")"
sleep 0.5
if raw_fast 6 1 >/dev/null; then fail "BMC answered while resetting"; else pass "BMC silent during reset"; fi
wait_bmc_up 10 || fail "BMC did not come back"
check_eq "new version after reset" "01 52" "$(bytes $(raw 6 1) | cut -d' ' -f3-4)"
check_eq "new version text" "06 31 2e 35 32 2e 37" "$(bytes $(raw 8 1 0xaa 2))"
check_eq "revision in firmware version" "01 52 00 07" "$(bytes $(raw 8 0x13 0))"
check_contains "task forgotten after reset" "rsp=0xcc" "$(raw 8 2 0x$task)"

# --- TFTP and FTP ------------------------------------------------------------------
for proto in tftp ftp; do
  base=VRX_SIM_${proto^^}
  set_uri "${!base}/$proto.bin"
  task=$(bytes $(raw 8 1 1 0x80))
  check_eq "$proto update completes" "ff 64" "$(wait_status "$task" ff 20 | tail -1)"
done
raw 6 2 >/dev/null
sleep 0.5
wait_bmc_up 10 || fail "BMC did not come back"
check_eq "last programmed image wins" "01 53" "$(bytes $(raw 6 1) | cut -d' ' -f3-4)"

# --- failures ------------------------------------------------------------------------
set_uri "$VRX_SIM_HTTP/missing.bin"
task=$(bytes $(raw 8 1 1 0x80))
check_eq "missing file: Path Not Found" "82" "$(wait_status "$task" ff 20 | tail -1)"
set_uri "$VRX_SIM_FTP/missing.bin"
task=$(bytes $(raw 8 1 1 0x80))
check_eq "missing FTP file: Path Not Found" "82" "$(wait_status "$task" ff 20 | tail -1)"
set_uri "$VRX_SIM_HTTP/bad.bin"
task=$(bytes $(raw 8 1 1 0x80))
check_eq "bad CRC: Checksum Error" "84" "$(wait_status "$task" ff 20 | tail -1)"
set_uri "http://127.0.0.1:81/new.bin"
set_item 0x04 2
set_item 0x05 1
task=$(bytes $(raw 8 1 1 0x80))
check_eq "no server: Cannot Establish Connection" "81" "$(wait_status "$task" ff 20 | tail -1)"
check_eq "three attempts for retry count 2" "3" \
  "$(grep -c "fetch attempt [0-9]* http://127.0.0.1:81" "$VRX_SIM_LOG")"
set_item 0x01 0
check_contains "network update refused when disabled" "rsp=0xd5" "$(raw 8 1 1 0x80)"
set_item 0x01 1

# --- reset to defaults ---------------------------------------------------------------
rtask=$(bytes $(raw 0x30 0x04 0xff))
check_eq "reset to defaults running" "00" "$(bytes $(raw 0x30 0x05 0x$rtask))"
sleep 1
check_eq "reset to defaults done" "01" "$(bytes $(raw 0x30 0x05 0x$rtask))"
res=$(bytes $(raw 0x30 0x01))
check_eq "enable back to default" "10 01 00 01 00" "$(bytes $(raw 0x30 0x02 0x$res 0x10 0x01 0 0 0 1))"

# --- graceful reset and faults --------------------------------------------------------
check_eq "graceful reset answers with the IANA" "5e 2b 00" \
  "$(bytes $(raw 0x2e 0xcc 0x5e 0x2b 0x00 0x06 0x43 0x01))"
sleep 0.5
wait_bmc_up 10 || fail "BMC did not come back from the graceful reset"
bmc fault 8 2 cc 0xc0 once
check_contains "injected completion code" "rsp=0xc0" "$(raw 8 2 1)"
check_contains "only once" "rsp=0xcc" "$(raw 8 2 1)"
bmc fault 6 1 drop 2
start=$SECONDS
out=$(raw_fast 6 1)
check_contains "dropped reply" "Unable to" "$out"
bmc fault clear
check_eq "answers again after clearing faults" "20" "$(bytes $(raw 6 1) | cut -d' ' -f1)"
bmc status_seq 0x05@300 0x00@300 0x02/40@300 0x83
set_item 0x01 1
task=$(bytes $(raw 8 1 1 0x81))
check_eq "custom status sequence" "83" "$(wait_status "$task" ff 10 | tail -1)"
bmc status_seq clear
if bmc bogus >/dev/null; then fail "console accepted a bad command"; else pass "console refuses bad commands"; fi

# --- request log -------------------------------------------------------------------------
check_contains "requests are logged" "req ch=1 08 01 01 81" "$(cat "$VRX_SIM_LOG")"
check_contains "responses are logged" "rsp ch=1 09 01 00" "$(cat "$VRX_SIM_LOG")"
e2e_finish
