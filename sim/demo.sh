#!/usr/bin/env bash
# Demo on a fresh Debian 12 machine, as root: installs what it needs, builds
# vrxfwul and the simulated BMC, starts the BMC and an HTTP server in a
# private network namespace, and runs a real remote update over the LAN with
# Debian's ipmitool, then shows the new firmware version.
#
#   bash sim/demo.sh            (build tree: build-demo beside sim/)
set -euo pipefail

readonly REPO=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly BUILD=${VRX_DEMO_BUILD:-$REPO/build-demo}

if [ "${1:-}" != --inside ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "demo: run as root (it installs packages and needs a network namespace)" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  # Fresh machines have no package lists yet.
  if ! apt-get install -y cmake g++ make openipmi libopenipmi-dev ipmitool \
      busybox curl dosfstools mtools iproute2 util-linux; then
    apt-get update
    apt-get install -y cmake g++ make openipmi libopenipmi-dev ipmitool \
      busybox curl dosfstools mtools iproute2 util-linux
  fi
  cmake -S "$REPO" -B "$BUILD" -DVRX_BUILD_TESTS=OFF -DVRX_BUILD_SIM=ON
  cmake --build "$BUILD" --target vrxfwul vrxsim -j"$(nproc)"
  exec bash "$REPO/sim/harness.sh" --build "$BUILD" --servers http \
    --bmc "set program_ms 4000" -- bash "$REPO/sim/demo.sh" --inside
fi

# ---- inside the simulator's namespace ---------------------------------------------
cd "$VRX_SIM_DIR"
# VRX_DEMO_BINARY runs another build of the program (the installed one).
vrxfwul=${VRX_DEMO_BINARY:-$BUILD/vrxfwul}
lan=(-H="$VRX_SIM_HOST" -U="$VRX_SIM_USER" -P="$VRX_SIM_PASSWORD" -L=lan)

show() {
  echo
  echo "+ vrxfwul $*"
  "$vrxfwul" "$@"
}

vrx-mkimage -o "$VRX_SIM_FILES/firmimg.k9" -v 1.52.7 -s 262144
echo "Simulated BMC at $VRX_SIM_HOST (user $VRX_SIM_USER), image on $VRX_SIM_HTTP/firmimg.k9"

show -xml "${lan[@]}"
start=$(date +%s.%N)
ups=$(grep -c ' event up, version' "$VRX_SIM_LOG" || true)
show -e=0 -uri="$VRX_SIM_HTTP/firmimg.k9" -D=0 -f "${lan[@]}"
end=$(date +%s.%N)
echo
echo "update took $(echo "$end - $start" | awk '{printf "%.1f", $1 - $3}') s; waiting for the BMC to restart ..."
for ((i = 0; i < 100; i++)); do
  [ "$(grep -c ' event up, version' "$VRX_SIM_LOG" || true)" -gt "$ups" ] && break
  sleep 0.2
done
show -xml "${lan[@]}"
