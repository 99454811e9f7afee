#!/usr/bin/env bash
# The example rack playbook of the vrx.firmware collection against four
# simulated BMCs (127.0.0.2-5): all four updated; an idempotent second run
# that sends only reads; check mode that changes nothing; one BMC with an
# injected fault failing with its message while the other three finish; and
# the BMC password in no process command line, log or Ansible output.
set -uo pipefail
source "$(dirname "$0")/../e2e/lib.sh"

skip_fleet() {
  echo "SKIP: $*" >&2
  exit 77
}
command -v ansible-playbook >/dev/null || skip_fleet "ansible-playbook not found (Debian package ansible-core)"
[ -f "$VRX_BUILD_DIR/sim/vrxsimbmc.so" ] || skip_fleet "simulator not built in $VRX_BUILD_DIR"

if [ -z "${VRX_SIM_DIR:-}" ]; then
  # A password of this run only, so that no other process on the machine
  # matches it; handed over in the environment, never as an argument.
  VRX_SIM_BMC_PASSWORD="Fl-$(od -An -N6 -tx1 /dev/urandom | tr -d ' \n')"
  export VRX_SIM_BMC_PASSWORD
fi
e2e_enter_sim --count 4 --servers http \
  --bmc "set validate_ms 300" --bmc "set program_ms 1000" \
  --bmc "set reset_down_ms 1500" --timeout 900
[ -x "$VRXFWUL" ] || skip_fleet "$VRXFWUL not built"

ANSIBLE_DIR=$VRX_SRC_DIR/ansible
EXAMPLES=$ANSIBLE_DIR/examples
PW=$VRX_SIM_PASSWORD
export ANSIBLE_COLLECTIONS_PATH=$ANSIBLE_DIR ANSIBLE_NOCOLOR=1 ANSIBLE_RETRY_FILES_ENABLED=0
export ANSIBLE_LOCAL_TEMP=$VRX_SIM_DIR/ansible-tmp ANSIBLE_REMOTE_TEMP=$VRX_SIM_DIR/ansible-tmp
export ANSIBLE_CONFIG=$VRX_SIM_DIR/ansible.cfg
printf '[defaults]\nforks = 4\n' >"$ANSIBLE_CONFIG"
unset IPMI_PASSWORD

# The password reaches the playbook only through Vault: an encrypted extra-vars
# file (written by the shell's own printf, then encrypted in place).
printf 'vault_bmc_password: "%s"\n' "$PW" >test-vault.yml
ansible-vault encrypt --vault-password-file "$EXAMPLES/vault-password.txt" test-vault.yml >/dev/null ||
  fail "ansible-vault encrypt"
grep -q '^\$ANSIBLE_VAULT' test-vault.yml || fail "the test vault is encrypted"

vrx-mkimage -o "$VRX_SIM_FILES/firmimg.k9" -v 1.52.7 -s 30000
cp "$VRX_SIM_FILES/firmimg.k9" local.k9

# playbook NAME [ansible-playbook options]: runs the example playbook while
# the command lines of all processes are sampled; sets PB_RC.
playbook() {
  local name=$1
  shift
  rm -f sampler.stop
  /usr/bin/python3 "$VRX_SRC_DIR/tests/fleet/cmdline_sampler.py" "cmdlines-$name.txt" sampler.stop 600 \
    >"sampler-$name.out" &
  local sampler=$!
  ansible-playbook -v -i "$EXAMPLES/inventory/rack.yml" \
    --vault-password-file "$EXAMPLES/vault-password.txt" -e @test-vault.yml \
    -e "bmc_update_executable=$VRXFWUL" -e "bmc_update_image=$PWD/local.k9" \
    -e "rack_summary_file=$PWD/summary-$name.json" \
    "$@" "$EXAMPLES/rack_update.yml" >"ansible-$name.out" 2>&1
  PB_RC=$?
  touch sampler.stop
  wait "$sampler"
  echo "$name: ansible-playbook exited with $PB_RC"
  cat "sampler-$name.out"
}

# recap HOST RUN: the "changed=N" of HOST in the PLAY RECAP of RUN.
recap() { grep -E "^$1 +:" "ansible-$2.out" | grep -o 'changed=[0-9]*' | head -1; }
# summary RUN HOST FIELD: one field of the summary the playbook wrote.
summary() {
  /usr/bin/python3 -c 'import json,sys
for e in json.load(open(sys.argv[1])):
    if e["host"] == sys.argv[2]: print(e[sys.argv[3]])' "summary-$1.json" "$2" "$3"
}
# version K: what BMC K reports in the program's own inventory document.
version() {
  local host=VRX_SIM_HOST_$1
  IPMI_PASSWORD=$PW "$VRXFWUL" -xml -H="${!host}" -U="$VRX_SIM_USER" -L=lan |
    /usr/bin/python3 -c 'import sys, xml.etree.ElementTree as T
print(T.fromstring(sys.stdin.read()).find(".//Application").get("version"))'
}
truncate_logs() { for k in 1 2 3 4; do log=VRX_SIM_LOG_$k; : >"${!log}"; done; }
# only_reads K: BMC K got requests, and none that changes it (extended
# configuration, Update Firmware, resets).
only_reads() {
  local log=VRX_SIM_LOG_$1 writes
  writes=$(grep -E ' req ch=[0-9]+ (30 |08 01 [^a]|06 0[23])' "${!log}")
  check_eq "BMC $1: no request that changes it" "" "$writes"
  grep -q ' req ch=[0-9]* 06 01' "${!log}" && pass "BMC $1: its version was read" ||
    fail "BMC $1: no Get Device ID"
}
no_password() {
  local name=$1 f
  for f in "ansible-$name.out" "summary-$name.json" "cmdlines-$name.txt" "$VRX_SIM_DIR"/bmc*/requests.log; do
    if grep -qF -f <(printf '%s\n' "$PW") "$f"; then fail "$name: password found in $(basename "$f")"; fi
  done
  pass "$name: password in no output, summary, command line or request log"
  grep -qE '(^|/)ipmitool .*-E' "cmdlines-$name.txt" &&
    pass "$name: the sampler saw ipmitool at work (with -E)" ||
    fail "$name: the sampler saw no ipmitool run"
}

for k in 1 2 3 4; do check_eq "BMC $k starts at 1.50" "1.50" "$(version $k)"; done

# --- 1. the whole rack is updated ---------------------------------------------------
start=$SECONDS
playbook first
echo "first run took $((SECONDS - start)) s"
check_eq "first run: playbook succeeds" 0 "$PB_RC"
for k in 1 2 3 4; do
  check_eq "first run: bmc0$k changed" "changed=1" "$(recap bmc0$k first)"
  check_eq "first run: bmc0$k summary" "updated 1.50 1.52" \
    "$(summary first bmc0$k status) $(summary first bmc0$k version_before) $(summary first bmc0$k version_after)"
  check_eq "first run: BMC $k runs 1.52 (vrxfwul -xml)" "1.52" "$(version $k)"
done
check_contains "first run: summary shown" "bmc01 (127.0.0.2): updated 1.50 -> 1.52" "$(cat ansible-first.out)"
no_password first

# --- 2. a second run changes nothing ----------------------------------------------------
truncate_logs
playbook second
check_eq "second run: playbook succeeds" 0 "$PB_RC"
for k in 1 2 3 4; do
  check_eq "second run: bmc0$k unchanged" "changed=0" "$(recap bmc0$k second)"
  check_eq "second run: bmc0$k summary" "unchanged" "$(summary second bmc0$k status)"
  only_reads $k
done
no_password second

# --- 3. check mode: a newer image is announced, nothing changes -------------------------
vrx-mkimage -o "$VRX_SIM_FILES/firmimg.k9" -v 1.53.0 -s 30000
cp "$VRX_SIM_FILES/firmimg.k9" local.k9
truncate_logs
playbook check --check
check_eq "check mode: playbook succeeds" 0 "$PB_RC"
for k in 1 2 3 4; do
  check_eq "check mode: bmc0$k would change" "changed=1" "$(recap bmc0$k check)"
  check_eq "check mode: bmc0$k summary" "would update" "$(summary check bmc0$k status)"
  check_contains "check mode: bmc0$k says what it would do" "would update 127.0.0.$((k + 1)) from 1.52 to 1.53" \
    "$(summary check bmc0$k message)"
  only_reads $k
  check_eq "check mode: BMC $k still runs 1.52" "1.52" "$(version $k)"
done
no_password check

# --- 4. one faulty BMC fails with its message, the other three finish ---------------------
vrx-simctl -p "$VRX_SIM_CONSOLE_3" "vrx status_seq 0x00@300 0x84" >/dev/null || fail "fault injected"
playbook fault
check_eq "fault: playbook reports the failed host" 2 "$PB_RC"
for k in 1 2 4; do
  check_eq "fault: bmc0$k updated" "updated 1.52 1.53" \
    "$(summary fault bmc0$k status) $(summary fault bmc0$k version_before) $(summary fault bmc0$k version_after)"
  check_eq "fault: BMC $k runs 1.53 (vrxfwul -xml)" "1.53" "$(version $k)"
done
check_eq "fault: bmc03 failed" "failed 20 RC_FW_UPDATE_FAILED" \
  "$(summary fault bmc03 status) $(summary fault bmc03 rc) $(summary fault bmc03 rc_name)"
check_eq "fault: bmc03's message" \
  "Firmware Update Failed; BMC update status 0x84 Checksum Error (vrxfwul exit status 20)" \
  "$(summary fault bmc03 message)"
check_contains "fault: the summary names it" \
  "bmc03 (127.0.0.4): failed: Firmware Update Failed; BMC update status 0x84 Checksum Error" \
  "$(cat ansible-fault.out)"
check_eq "fault: BMC 3 still runs 1.52" "1.52" "$(version 3)"
check_contains "fault: the log of the failed run is returned" "Get Update Status Command" "$(cat ansible-fault.out)"
no_password fault
e2e_finish
