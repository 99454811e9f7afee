#!/usr/bin/env bash
# The real vrxfwul over the LAN with Debian's ipmitool against the simulated
# BMC, where safety matters: ipmitool refusing or failing, two runs against
# one BMC, a run killed mid-way and run again, and the password, which must
# show up in no process listing, output or log.
set -uo pipefail
source "$(dirname "$0")/lib.sh"
e2e_enter_sim --servers "http" \
  --bmc "set validate_ms 300" --bmc "set program_ms 3000" \
  --bmc "set reset_down_ms 1500"
[ -x "$VRXFWUL" ] || { echo "SKIP: $VRXFWUL not built" >&2; [ "${VRX_E2E_REQUIRED:-}" = 1 ] && exit 1; exit 77; }

printf 'PhaseOneWaitingTime = 5\nIPMICommandRetry = 0\n' >bmcfwu.cfg
mapfile -t lan < <(lan_args lan)
vrx-mkimage -o "$VRX_SIM_FILES/fw.bin" -v 1.70.1 -s 30000
uri="$VRX_SIM_HTTP/fw.bin"

# ipmitool refuses a user name longer than 16 bytes and exits 1: that is an
# error, not a BMC at version 0.00.
run_vrx -xml -H="$VRX_SIM_HOST" -U=aaaaaaaaaaaaaaaaaaaaa -P="$VRX_SIM_PASSWORD" -L=lan
check_eq "user name too long: nonzero exit" 1 "$((RC != 0))"
check_not_contains "user name too long: no version 0.00" "0.00" "$OUT"
run_vrx -e=0 -uri="$uri" -f -H="$VRX_SIM_HOST" -U=aaaaaaaaaaaaaaaaaaaaa -P="$VRX_SIM_PASSWORD" -L=lan
check_eq "user name too long, update: nonzero exit" 1 "$((RC != 0))"
check_contains "user name too long, update: ipmitool's reason shown" "Username is too long" "$ERR"

# A wrong user name: the session cannot be established.
run_vrx -xml -H="$VRX_SIM_HOST" -U=nobody -P="$VRX_SIM_PASSWORD" -L=lan
check_eq "wrong user: nonzero exit" 1 "$((RC != 0))"
check_not_contains "wrong user: no version 0.00" "0.00" "$OUT"

# A loopback address where nothing listens (this test's own namespace).
run_vrx -xml -H=127.0.0.9 -U="$VRX_SIM_USER" -P="$VRX_SIM_PASSWORD" -L=lan
check_eq "unreachable host: nonzero exit" 1 "$((RC != 0))"
check_not_contains "unreachable host: no version 0.00" "0.00" "$OUT"

# The password in no command line: a watcher samples every process of this
# test's network namespace (the run and its ipmitool children; other suites
# run beside it in namespaces of their own) while an update runs with the
# password from the environment, with -debugmsg and a log.
cat >watch.py <<'PY'
import os, sys, time
secret = sys.argv[1].encode()
stop = sys.argv[2]
ours = os.readlink("/proc/self/ns/net")
seen = 0
while not os.path.exists(stop):
    for pid in os.listdir("/proc"):
        if not pid.isdigit():
            continue
        try:
            if os.readlink("/proc/%s/ns/net" % pid) != ours:
                continue
            with open("/proc/%s/cmdline" % pid, "rb") as f:
                line = f.read()
        except OSError:
            continue
        seen += 1
        if secret in line and b"watch.py" not in line:
            print("LEAK in", pid, line.replace(b"\0", b" ").decode(errors="replace"))
    time.sleep(0.005)
print("sampled", seen, "command lines")
PY
rm -f stop.flag
python3 watch.py "$VRX_SIM_PASSWORD" stop.flag >watch.out &
watcher=$!
ups=$(resets_done)
IPMI_PASSWORD=$VRX_SIM_PASSWORD run_vrx -e=0 -uri="$uri" -D=0 -f -debugmsg -l=run.log \
  -H="$VRX_SIM_HOST" -U="$VRX_SIM_USER" -L=lan
touch stop.flag
wait "$watcher"
check_eq "secret run: exit status" 0 "$RC"
check_not_contains "secret run: no process showed the password" "LEAK" "$(cat watch.out)"
check_contains "secret run: the watcher saw the run" "sampled" "$(cat watch.out)"
check_not_contains "secret run: not on standard output" "$VRX_SIM_PASSWORD" "$OUT"
check_not_contains "secret run: not on standard error" "$VRX_SIM_PASSWORD" "$ERR"
check_not_contains "secret run: not in the log" "$VRX_SIM_PASSWORD" "$(cat run.log)"
check_contains "secret run: ipmitool was given -E" "-U $VRX_SIM_USER -E -H" "$(cat run.log)"
check_eq "secret run: the log is the owner's only" 600 "$(stat -c %a run.log)"
wait_reset_after "$ups" 15 || fail "secret run: BMC did not come back"

# With -P the log and console mask it.
ups=$(resets_done)
run_vrx -e=0 -uri="$uri" -D=0 -f -debugmsg -l=run2.log "${lan[@]}"
check_eq "-P run: exit status" 0 "$RC"
check_contains "-P run: the logged command line masks it" "-P=******** " "$(head -1 run2.log)"
check_not_contains "-P run: not in the log" "$VRX_SIM_PASSWORD" "$(cat run2.log)"
check_not_contains "-P run: not on standard output" "$VRX_SIM_PASSWORD" "$OUT"
wait_reset_after "$ups" 15 || fail "-P run: BMC did not come back"

# Two runs at once against one BMC: the second is refused at once, the first
# completes.
ups=$(resets_done)
polls=$(grep -c "req ch=1 08 02" "$VRX_SIM_LOG")
"$VRXFWUL" -e=0 -uri="$uri" -D=0 -f "${lan[@]}" >first.out 2>first.err </dev/null &
first=$!
for ((i = 0; i < 100; i++)); do
  [ "$(grep -c "req ch=1 08 02" "$VRX_SIM_LOG")" -gt "$polls" ] && break
  sleep 0.1
done
start=$SECONDS
run_vrx -e=0 -uri="$uri" -D=0 -f "${lan[@]}"
check_eq "second run: refused with status 13" 13 "$RC"
check_contains "second run: the reason" \
  "   Another vrxfwul run is updating this BMC (lock $VRXFWUL_LOCK_DIR/vrxfwul-lan-$VRX_SIM_HOST.lock)" "$ERR"
check_eq "second run: refused at once" 1 "$((SECONDS - start <= 3))"
wait "$first"
check_eq "first run: completes" 0 "$?"
wait_reset_after "$ups" 15 || fail "two runs: BMC did not come back"

# A run stopped by SIGTERM while the BMC programs, then run again.
"$VRXFWUL" -e=0 -uri="$uri" -D=0 -f -l=killed.log "${lan[@]}" >killed.out 2>killed.err </dev/null &
victim=$!
for ((i = 0; i < 100; i++)); do
  grep -q "Firmware Update Status" killed.out 2>/dev/null && break
  sleep 0.1
done
sent=$(date +%s%N)
kill -TERM "$victim"
wait "$victim"
status=$?
took_ms=$((($(date +%s%N) - sent) / 1000000))
echo "SIGTERM during the status poll: exit after $took_ms ms"
check_eq "killed run: exit status 143" 143 "$status"
check_contains "killed run: names the signal" "   Interrupted by SIGTERM: " "$(cat killed.err)"
check_contains "killed run: the log too" "   Interrupted by SIGTERM: " "$(cat killed.log)"
sleep 4  # the BMC finishes the task it was given
ups=$(resets_done)
run_vrx -e=0 -uri="$uri" -D=0 -f "${lan[@]}"
check_eq "rerun after the kill: exit status" 0 "$RC"
check_not_contains "rerun after the kill: no update already in progress" "already in progress" "$ERR"
wait_reset_after "$ups" 15 || fail "rerun: BMC did not come back"
e2e_finish
