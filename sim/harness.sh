#!/usr/bin/env bash
# Runs one command next to a simulated BMC: ipmi_sim with the vrx module in a
# private network namespace (its own 127.0.0.1:623), optional HTTP, TFTP and
# FTP servers on loopback, and cleans everything up afterwards, also on
# failure or Ctrl-C. Needs root (unshare --net); exits 77 (skip) otherwise.
# With --count N it runs a rack of N BMCs instead, BMC k on 127.0.0.(k+1):623,
# each with its own state, and the file servers shared on 127.0.0.1.
#
#   sim/harness.sh [options] -- COMMAND [ARGS...]
#
# Options:
#   --build DIR       build tree (holds sim/vrxsimbmc.so); default
#                     $VRX_BUILD_DIR or <repo>/build
#   --servers LIST    file servers to start, from "http tftp ftp"
#                     (default "http"; "none" for none)
#   --serve FILE      copy FILE into the served directory (repeatable)
#   --bmc "CMD"       a console command for the BMC at start, e.g.
#                     --bmc "set product_name Stratovex Z3100" (repeatable;
#                     "vrx " is prepended); for every BMC of a rack
#   --replay FILE     the BMC answers from a vrxfwul -record file (path
#                     without blanks), from when COMMAND starts: the
#                     harness's own probes are answered as usual
#   --count N         N simulated BMCs (1-50, default 1)
#   --bmc-at K "CMD"  like --bmc, for BMC K (1..N) only, after the --bmc ones,
#                     e.g. --bmc-at 3 "set version 1 0x40 0"
#   --ipmitool-timeouts N R
#                     put an ipmitool wrapper first on PATH that adds -N N -R R
#   --timeout SEC     limit for COMMAND (default 600)
#   --keep            keep the working directory for inspection
#
# The BMC user's password is VRX_SIM_BMC_PASSWORD from the environment, else
# "secret" (up to 16 letters, digits and ".-_+").
#
# COMMAND sees: VRX_SIM_HOST, VRX_SIM_USER, VRX_SIM_PASSWORD, VRX_SIM_DIR,
# VRX_SIM_LOG (request log), VRX_SIM_FILES (served directory),
# VRX_SIM_CONSOLE (console port), VRX_KCS_SIM_PORT (system interface port),
# VRX_SIM_HTTP/TFTP/FTP (base URIs), VRX_SIM_LIBDIR (test libopenraw.so) and
# the simulator tools (vrx-simctl, vrx-mkimage) on PATH.
# A rack (--count N) also gives: VRX_SIM_COUNT=N, VRX_SIM_HOSTS (the N
# addresses), VRX_SIM_FLEET (a file with one line "K HOST CONSOLE_PORT
# KCS_PORT DIR REQUEST_LOG" per BMC) and, per BMC, VRX_SIM_HOST_K,
# VRX_SIM_LOG_K, VRX_SIM_CONSOLE_K, VRX_SIM_DIR_K; VRX_SIM_HOST, VRX_SIM_LOG
# and VRX_SIM_CONSOLE name BMC 1, VRX_SIM_DIR is the shared working directory.
set -euo pipefail

readonly SIM_SRC=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly REPO=$(cd "$SIM_SRC/.." && pwd)
readonly CONSOLE_PORT=9000
readonly KCS_PORT=9015
readonly SIM_USER=admin

orig_args=("$@")
build=${VRX_BUILD_DIR:-$REPO/build}
servers="http"
serve=()
bmc_cmds=()
bmc_at=()
count=1
# From the environment, not an option, so that no process listing shows it.
SIM_PASSWORD=${VRX_SIM_BMC_PASSWORD:-secret}
ipmitool_n=""
replay_file=""
ipmitool_r=""
timeout_s=600
keep=0

die() { echo "harness: $*" >&2; exit 2; }
# A missing package skips the test run with a clear message, not a failure,
# unless the caller says every end-to-end test must run (the CI does).
skip() {
  echo "harness: SKIP: $*" >&2
  [ "${VRX_E2E_REQUIRED:-}" = 1 ] && { echo "harness: VRX_E2E_REQUIRED=1: failing instead" >&2; exit 1; }
  exit 77
}
need() { skip "$1 not found (Debian package $2)"; }

while [ $# -gt 0 ]; do
  case "$1" in
    --build) build=$2; shift 2 ;;
    --servers) servers=$2; shift 2 ;;
    --serve) serve+=("$2"); shift 2 ;;
    --bmc) bmc_cmds+=("$2"); shift 2 ;;
    --replay)
      [ -f "$2" ] || die "--replay: no such file $2"
      replay_file=$(realpath "$2"); shift 2 ;;
    --count) count=$2; shift 2 ;;
    --bmc-at) bmc_at+=("$2" "$3"); shift 3 ;;
    --ipmitool-timeouts) ipmitool_n=$2; ipmitool_r=$3; shift 3 ;;
    --timeout) timeout_s=$2; shift 2 ;;
    --keep) keep=1; shift ;;
    --) shift; break ;;
    *) die "unknown option $1 (see the header of $0)" ;;
  esac
done
[ $# -gt 0 ] || die "no command given"
[ "$servers" = none ] && servers=""
[[ "$SIM_PASSWORD" =~ ^[A-Za-z0-9._+-]{1,16}$ ]] || die "VRX_SIM_BMC_PASSWORD: 1-16 of A-Z a-z 0-9 . _ + -"
[[ "$count" =~ ^[1-9][0-9]?$ ]] && [ "$count" -le 50 ] || die "--count wants 1-50, not $count"
for ((i = 0; i < ${#bmc_at[@]}; i += 2)); do
  [[ "${bmc_at[$i]}" =~ ^[1-9][0-9]*$ ]] && [ "${bmc_at[$i]}" -le "$count" ] ||
    die "--bmc-at ${bmc_at[$i]}: no such BMC (1..$count)"
done

if [ "${VRX_SIM_IN_NAMESPACE:-}" != 1 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    skip "needs root for a private network namespace (unshare --net)"
  fi
  command -v unshare >/dev/null || die "unshare not found (package util-linux)"
  export VRX_SIM_IN_NAMESPACE=1
  exec unshare --net -- "$BASH" "$0" "${orig_args[@]}"
fi

# ---- inside the private network namespace ------------------------------------

build=$(cd "$build" 2>/dev/null && pwd) || die "no build directory $build"
module=$build/sim/vrxsimbmc.so
[ -f "$module" ] || die "$module not built (cmake --build $build --target vrxsim)"
command -v ipmi_sim >/dev/null || need ipmi_sim openipmi
command -v ipmitool >/dev/null || need ipmitool ipmitool
command -v curl >/dev/null || need curl curl
command -v mkfs.vfat >/dev/null || need mkfs.vfat dosfstools
command -v mcopy >/dev/null || need mcopy mtools
ip link set lo up

work=$(mktemp -d /tmp/vrxsim.XXXXXX)
chmod 755 "$work"
pids=()
names=()

stop_all() {
  local i pid n
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do
    pid=${pids[$i]}
    kill -TERM "$pid" 2>/dev/null || continue
    for ((n = 0; n < 20; n++)); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  pids=()
}

command_pid=""
cleanup() {
  local rc=$?
  trap - EXIT INT TERM
  if [ -n "$command_pid" ]; then
    kill -TERM "$command_pid" 2>/dev/null
    wait "$command_pid" 2>/dev/null
  fi
  stop_all
  if [ "$keep" = 1 ]; then
    echo "harness: kept $work" >&2
  else
    rm -rf "$work"
  fi
  exit "$rc"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# start NAME COMMAND...: runs a server in the background and remembers it.
start() {
  local name=$1
  shift
  "$@" >"$work/$name.out" 2>&1 </dev/null &
  pids+=($!)
  names+=("$name")
}

# wait_for WHAT COMMAND...: bounded retry of a readiness probe.
wait_for() {
  local what=$1 n
  shift
  for ((n = 0; n < 50; n++)); do
    if "$@" >/dev/null 2>&1; then return 0; fi
    sleep 0.1
  done
  echo "harness: $what did not come up; its output:" >&2
  cat "$work/$what.out" >&2 2>/dev/null || true
  exit 2
}

mkdir -p "$work/files"
chmod 755 "$work/files"
for f in ${serve[@]+"${serve[@]}"}; do
  cp -- "$f" "$work/files/"
done
echo ready >"$work/files/.ready"
chmod -R a+rX "$work/files"

# write_bmc DIR HOST CONSOLE_PORT KCS_PORT K: the configuration of BMC K.
write_bmc() {
  local dir=$1 host=$2 console=$3 kcs=$4 k=$5 c i
  mkdir -p "$dir/state" "$dir/bmc"
  cat >"$dir/lan.conf" <<CONF
name "vrxsim"
set_working_mc 0x20
  startlan 1
    addr $host 623
    priv_limit admin
    allowed_auths_callback none md2 md5 straight
    allowed_auths_user none md2 md5 straight
    allowed_auths_operator none md2 md5 straight
    allowed_auths_admin none md2 md5 straight
    guid a1b2c3d4e5f60718293a4b5c6d7e8f$(printf '%02x' $((0x90 + k - 1)))
  endlan
  serial 15 127.0.0.1 $kcs codec VM
user 2 true "$SIM_USER" "$SIM_PASSWORD" admin 10 none md2 md5 straight
console 127.0.0.1 $console
loadlib "$module" ""
CONF
  {
    echo "mc_setbmc 0x20"
    echo "mc_add 0x20 0x20 no-device-sdrs 0x01 0x01 0x02 0x9f 0x002B5E 0x0f02"
    echo "mc_enable 0x20"
    echo "vrx set log $dir/requests.log"
    echo "vrx set workdir $dir/bmc"
    for c in ${bmc_cmds[@]+"${bmc_cmds[@]}"}; do
      echo "vrx $c"
    done
    for ((i = 0; i < ${#bmc_at[@]}; i += 2)); do
      if [ "${bmc_at[$i]}" = "$k" ]; then echo "vrx ${bmc_at[$((i + 1))]}"; fi
    done
  } >"$dir/bmc.emu"
}

# One BMC keeps the historical layout (127.0.0.1, files directly in $work);
# a rack puts BMC k on 127.0.0.(k+1) with its files in $work/bmcK.
bmc_hosts=() bmc_dirs=() bmc_consoles=() bmc_kcs=() bmc_pids=() bmc_names=()
for ((k = 1; k <= count; k++)); do
  if [ "$count" -eq 1 ]; then
    bmc_hosts+=(127.0.0.1) bmc_dirs+=("$work") bmc_names+=(ipmi_sim)
    bmc_consoles+=("$CONSOLE_PORT") bmc_kcs+=("$KCS_PORT")
  else
    bmc_hosts+=("127.0.0.$((k + 1))") bmc_dirs+=("$work/bmc$k") bmc_names+=("ipmi_sim$k")
    bmc_consoles+=($((CONSOLE_PORT + k))) bmc_kcs+=($((KCS_PORT + 100 + k)))
  fi
  i=$((k - 1))
  write_bmc "${bmc_dirs[$i]}" "${bmc_hosts[$i]}" "${bmc_consoles[$i]}" "${bmc_kcs[$i]}" "$k"
  start "${bmc_names[$i]}" ipmi_sim -c "${bmc_dirs[$i]}/lan.conf" -f "${bmc_dirs[$i]}/bmc.emu" \
    -s "${bmc_dirs[$i]}/state" -n
  bmc_pids+=("${pids[-1]}")
done
# bmc_answers PID HOST
bmc_answers() {
  kill -0 "$1" 2>/dev/null || return 0  # gone: stop waiting
  IPMI_PASSWORD=$SIM_PASSWORD ipmitool -N 1 -R 1 -I lan -H "$2" -U "$SIM_USER" -E raw 6 1
}
for ((i = 0; i < count; i++)); do
  wait_for "${bmc_names[$i]}" bmc_answers "${bmc_pids[$i]}" "${bmc_hosts[$i]}"
  kill -0 "${bmc_pids[$i]}" 2>/dev/null ||
    { cat "$work/${bmc_names[$i]}.out" >&2; die "ipmi_sim of BMC $((i + 1)) exited"; }
done

for s in $servers; do
  case "$s" in
    http)
      command -v busybox >/dev/null || need busybox busybox
      start http busybox httpd -f -p 127.0.0.1:80 -h "$work/files"
      wait_for http curl -sf -m 2 -o /dev/null http://127.0.0.1/.ready
      export VRX_SIM_HTTP=http://127.0.0.1 ;;
    tftp)
      [ -x /usr/bin/python3 ] || need /usr/bin/python3 python3
      start tftp /usr/bin/python3 "$SIM_SRC/servers/tftpd.py" 127.0.0.1 69 "$work/files"
      wait_for tftp curl -sf -m 2 -o /dev/null tftp://127.0.0.1/.ready
      export VRX_SIM_TFTP=tftp://127.0.0.1 ;;
    ftp)
      /usr/bin/python3 -c 'import pyftpdlib' 2>/dev/null ||
        need pyftpdlib python3-pyftpdlib
      start ftp /usr/bin/python3 -m pyftpdlib -i 127.0.0.1 -p 21 -d "$work/files"
      wait_for ftp curl -sf -m 2 -o /dev/null ftp://127.0.0.1/.ready
      export VRX_SIM_FTP=ftp://127.0.0.1 ;;
    *) die "unknown server $s" ;;
  esac
done

if [ -n "$ipmitool_n" ]; then
  mkdir -p "$work/wrap"
  real=$(command -v ipmitool)
  printf '#!/bin/sh\nexec %q -N %q -R %q "$@"\n' "$real" "$ipmitool_n" "$ipmitool_r" \
    >"$work/wrap/ipmitool"
  chmod 755 "$work/wrap/ipmitool"
  PATH="$work/wrap:$PATH"
fi

export VRX_SIM_HOST=${bmc_hosts[0]} VRX_SIM_USER=$SIM_USER VRX_SIM_PASSWORD=$SIM_PASSWORD
export VRX_SIM_DIR=$work VRX_SIM_LOG=${bmc_dirs[0]}/requests.log VRX_SIM_FILES=$work/files
export VRX_SIM_CONSOLE=${bmc_consoles[0]} VRX_KCS_SIM_PORT=${bmc_kcs[0]}
if [ "$count" -gt 1 ]; then
  export VRX_SIM_COUNT=$count VRX_SIM_HOSTS="${bmc_hosts[*]}" VRX_SIM_FLEET=$work/fleet.txt
  : >"$VRX_SIM_FLEET"
  for ((i = 0; i < count; i++)); do
    k=$((i + 1))
    echo "$k ${bmc_hosts[$i]} ${bmc_consoles[$i]} ${bmc_kcs[$i]} ${bmc_dirs[$i]} ${bmc_dirs[$i]}/requests.log" \
      >>"$VRX_SIM_FLEET"
    export "VRX_SIM_HOST_$k=${bmc_hosts[$i]}" "VRX_SIM_LOG_$k=${bmc_dirs[$i]}/requests.log"
    export "VRX_SIM_CONSOLE_$k=${bmc_consoles[$i]}" "VRX_SIM_DIR_$k=${bmc_dirs[$i]}"
  done
fi
export VRX_SIM_LIBDIR=$build/sim/kcs
export PATH="$build/sim:$PATH"
if [ -n "$replay_file" ]; then
  for ((i = 0; i < count; i++)); do
    vrx-simctl -p "${bmc_consoles[$i]}" "vrx replay $replay_file" ||
      die "BMC $((i + 1)) refused the recording $replay_file"
  done
fi

# In the background so that a signal to the harness is handled at once;
# standard input stays the harness's own.
set +e
timeout --foreground --kill-after=5 "$timeout_s" "$@" 0<&0 &
command_pid=$!
wait "$command_pid"
rc=$?
command_pid=""
set -e
if [ "$rc" -ne 0 ] && [ "$rc" -ne 77 ]; then
  if [ "$count" -eq 1 ]; then
    echo "harness: command exited with $rc; last lines of the BMC's request log:" >&2
    tail -n 40 "$work/requests.log" >&2 2>/dev/null || true
  else
    for ((i = 0; i < count; i++)); do
      echo "harness: command exited with $rc; last lines of the request log of BMC $((i + 1)) (${bmc_hosts[$i]}):" >&2
      tail -n 15 "${bmc_dirs[$i]}/requests.log" >&2 2>/dev/null || true
    done
  fi
fi
exit "$rc"
