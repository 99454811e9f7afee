#!/usr/bin/env bash
# Wall time of the example rack playbook against four simulated BMCs at
# forks=1 and at forks=4 in one run (their ratio), and what Ansible adds per
# BMC over running the program by hand:
#   bare update   `vrxfwul -e=0 -uri=... -D=0 -f` alone;
#   by hand       what the module runs: `-xml`, `-fml` with a log, then
#                 `-xml` every 2 s until the BMC is back with the new version;
#   no-op         a run where every BMC already has the version: Ansible
#                 against one bare `-xml` per BMC.
#
#   bench/fleet_bench.sh [BUILD_DIR] [ROUNDS]   (as root; uses sim/harness.sh)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
src=$(cd "$here/.." && pwd)
build=$(cd "${1:-$src/build}" && pwd)
rounds=${2:-1}
command -v ansible-playbook >/dev/null || { echo "fleet_bench: ansible-playbook not found (Debian package ansible-core)" >&2; exit 77; }
if [ -z "${VRX_SIM_DIR:-}" ]; then
  exec bash "$src/sim/harness.sh" --build "$build" --count 4 --servers http \
    --bmc "set validate_ms 300" --bmc "set program_ms 1000" --bmc "set reset_down_ms 1500" \
    --timeout 3000 -- bash "$0" "$build" "$rounds"
fi
cd "$VRX_SIM_DIR"
vrx=$build/vrxfwul
examples=$src/ansible/examples
export ANSIBLE_COLLECTIONS_PATH=$src/ansible ANSIBLE_NOCOLOR=1 ANSIBLE_RETRY_FILES_ENABLED=0
export ANSIBLE_LOCAL_TEMP=$VRX_SIM_DIR/ansible-tmp ANSIBLE_REMOTE_TEMP=$VRX_SIM_DIR/ansible-tmp
export ANSIBLE_CONFIG=$VRX_SIM_DIR/ansible.cfg
printf '[defaults]\n' >"$ANSIBLE_CONFIG"
now_ns() { date +%s%N; }
minor=60
# image: a new image version on the file server and as the local copy.
image() {
  minor=$((minor + 1))
  vrx-mkimage -o "$VRX_SIM_FILES/firmimg.k9" -v "1.$minor.0" -s 30000
  cp "$VRX_SIM_FILES/firmimg.k9" local.k9
}
# rack FORKS: one playbook run; its wall time in ns goes to RACK_NS.
rack() {
  local start rc
  start=$(now_ns)
  set +e
  ansible-playbook -f "$1" -i "$examples/inventory/rack.yml" \
    --vault-password-file "$examples/vault-password.txt" \
    -e "bmc_update_executable=$vrx" -e "bmc_update_image=$PWD/local.k9" \
    "$examples/rack_update.yml" >"rack-f$1.out" 2>&1
  rc=$?
  set -e
  [ "$rc" -eq 0 ] || { echo "fleet_bench: playbook failed, see rack-f$1.out:" >&2; tail -20 "rack-f$1.out" >&2; exit 1; }
  RACK_NS=$(($(now_ns) - start))
}
version() {
  "$vrx" -xml -H="$1" -U="$VRX_SIM_USER" -L=lan 2>/dev/null | sed -n 's/.*<Application .* version="\([^"]*\)".*/\1/p'
}
export IPMI_PASSWORD=$VRX_SIM_PASSWORD
wait_version() {
  local n
  for ((n = 0; n < 60; n++)); do
    sleep 2
    [ "$(version "$1")" = "$2" ] && return 0
  done
  echo "fleet_bench: $1 did not come back with $2" >&2
  exit 1
}

f1=0 f4=0 bare=0 hand=0 noop=0 xml=0
for ((r = 0; r < rounds; r++)); do
  image; rack 4; f4=$((f4 + RACK_NS))
  image; rack 1; f1=$((f1 + RACK_NS))
  # Every BMC has the version now: the no-op run, against one -xml each.
  rack 1; noop=$((noop + RACK_NS))
  start=$(now_ns)
  for h in $VRX_SIM_HOSTS; do version "$h" >/dev/null; done
  xml=$((xml + $(now_ns) - start))

  image
  start=$(now_ns)
  for h in $VRX_SIM_HOSTS; do
    "$vrx" -e=0 -uri="$VRX_SIM_HTTP/firmimg.k9" -D=0 -f -H="$h" -U="$VRX_SIM_USER" -L=lan >"bare-$h.out" 2>&1 ||
      { echo "fleet_bench: update of $h failed:" >&2; tail -5 "bare-$h.out" >&2; exit 1; }
  done
  bare=$((bare + $(now_ns) - start))
  for h in $VRX_SIM_HOSTS; do wait_version "$h" "1.$minor"; done

  image
  start=$(now_ns)
  for h in $VRX_SIM_HOSTS; do
    version "$h" >/dev/null
    "$vrx" -fml -e=0 -uri="$VRX_SIM_HTTP/firmimg.k9" -D=0 -H="$h" -U="$VRX_SIM_USER" -L=lan \
      -l="$PWD/hand.log" >/dev/null 2>&1
    rm -f hand.log
    wait_version "$h" "1.$minor"
  done
  hand=$((hand + $(now_ns) - start))
done

awk -v f1="$f1" -v f4="$f4" -v bare="$bare" -v hand="$hand" -v noop="$noop" -v xml="$xml" \
    -v r="$rounds" 'BEGIN {
  n = 4 * r
  printf "4 BMCs, %d round(s); simulated BMC: validate 0.3 s, program 1 s, reset 1.5 s\n", r
  printf "rack playbook, forks=1:            %6.1f s\n", f1 / 1e9 / r
  printf "rack playbook, forks=4:            %6.1f s\n", f4 / 1e9 / r
  printf "speed-up forks=4 over forks=1:     %6.2f\n", f1 / f4
  printf "per BMC, bare update run:          %6.2f s\n", bare / 1e9 / n
  printf "per BMC, module steps by hand:     %6.2f s\n", hand / 1e9 / n
  printf "per BMC, playbook at forks=1:      %6.2f s\n", f1 / 1e9 / n
  printf "Ansible over the steps by hand:    %6.2f s per BMC\n", (f1 - hand) / 1e9 / n
  printf "Ansible over a bare update run:    %6.2f s per BMC\n", (f1 - bare) / 1e9 / n
  printf "no-op playbook at forks=1:         %6.2f s per BMC (bare -xml %.3f s)\n", noop / 1e9 / n, xml / 1e9 / n
}'
