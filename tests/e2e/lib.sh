# Helpers shared by the end-to-end tests. A test script sources this file
# and calls `e2e_enter_sim [harness options]` first: outside the simulator it
# re-runs the script through sim/harness.sh (own network namespace, BMC,
# file servers); inside it just returns.

E2E_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
VRX_SRC_DIR=${VRX_SRC_DIR:-$(cd "$E2E_DIR/../.." && pwd)}
VRX_BUILD_DIR=${VRX_BUILD_DIR:-$VRX_SRC_DIR/build}
E2E_FAILURES=0

e2e_enter_sim() {
  if [ -z "${VRX_SIM_DIR:-}" ]; then
    exec bash "$VRX_SRC_DIR/sim/harness.sh" --build "$VRX_BUILD_DIR" "$@" \
      -- bash "$0"
  fi
  cd "$VRX_SIM_DIR"
  # Each test drives its own simulated BMC: its runs lock only each other.
  export VRXFWUL_LOCK_DIR="$VRX_SIM_DIR"
  export VRXFWUL_HISTORY_FILE="$VRX_SIM_DIR/history"
}

fail() {
  echo "FAIL: $*" >&2
  E2E_FAILURES=$((E2E_FAILURES + 1))
}

pass() { echo "ok: $*"; }

# check_eq WHAT EXPECTED ACTUAL
check_eq() {
  if [ "$2" == "$3" ]; then pass "$1"; else
    fail "$1: expected [$2], got [$3]"
  fi
}

# check_contains WHAT NEEDLE HAYSTACK
check_contains() {
  if [[ "$3" == *"$2"* ]]; then pass "$1"; else
    fail "$1: [$2] not found in:"$'\n'"$3"
  fi
}

check_not_contains() {
  if [[ "$3" != *"$2"* ]]; then pass "$1"; else
    fail "$1: [$2] unexpectedly found in:"$'\n'"$3"
  fi
}

e2e_finish() {
  if [ "$E2E_FAILURES" -ne 0 ]; then
    echo "$E2E_FAILURES check(s) failed" >&2
    exit 1
  fi
  echo "all checks passed"
}

# raw NETFN CMD DATA...: one request with Debian's ipmitool over IPMI 1.5.
raw() {
  ipmitool -I lan -H "$VRX_SIM_HOST" -U "$VRX_SIM_USER" -P "$VRX_SIM_PASSWORD" \
    raw "$@" 2>&1
}

# raw_fast: the same with short session time-outs, for a BMC that is away.
raw_fast() {
  ipmitool -N 1 -R 1 -I lan -H "$VRX_SIM_HOST" -U "$VRX_SIM_USER" \
    -P "$VRX_SIM_PASSWORD" raw "$@" 2>&1
}

# Trims ipmitool's output to one line of bytes.
bytes() { echo $*; }

bmc() { vrx-simctl "vrx $*"; }

# wait_status TASK FINAL SECONDS: polls Get Update Status until its first
# byte is FINAL (or a failure code); prints every distinct answer.
wait_status() {
  local task=$1 final=$2 limit=$3 start=$SECONDS answer last=""
  while [ $((SECONDS - start)) -le "$limit" ]; do
    answer=$(bytes $(raw 0x08 0x02 "0x$task"))
    if [ "$answer" != "$last" ]; then echo "$answer"; last=$answer; fi
    case "$answer" in
      "$final"*|8?*) return 0 ;;
    esac
    sleep 0.3
  done
  return 1
}

# wait_bmc_up SECONDS: until Get Device ID answers again.
wait_bmc_up() {
  local limit=$1 start=$SECONDS
  while [ $((SECONDS - start)) -le "$limit" ]; do
    raw_fast 6 1 >/dev/null && return 0
    sleep 0.2
  done
  return 1
}

# set_uri TEXT: writes the image URI into the BMC's extended configuration
# the way the program does: length byte plus characters, 10 bytes a chunk.
set_uri() {
  local text=$1 res buf=() i chunk off=0 total last
  res=$(bytes $(raw 0x30 0x01))
  buf=($(printf '0x%02x' ${#text}))
  for ((i = 0; i < ${#text}; i++)); do
    buf+=($(printf '0x%02x' "'${text:i:1}"))
  done
  total=${#buf[@]}
  while [ "$off" -lt "$total" ]; do
    chunk=10
    [ $((off + chunk)) -ge "$total" ] && chunk=$((total - off))
    last=0
    [ $((off + chunk)) -ge "$total" ] && last=1
    raw 0x30 0x03 0x$res 0x10 0x03 0x00 $((off & 255)) $((off >> 8)) $last \
      "${buf[@]:off:chunk}" >/dev/null || return 1
    off=$((off + chunk))
  done
}

# set_item AID VALUE: one-byte configuration item.
set_item() {
  local res
  res=$(bytes $(raw 0x30 0x01))
  raw 0x30 0x03 0x$res 0x10 "$1" 0x00 0 0 1 "$2" >/dev/null
}

VRXFWUL=${VRXFWUL:-$VRX_BUILD_DIR/vrxfwul}

# run_vrx ARGS...: runs the program; sets RC, OUT and ERR (exact text,
# trailing line feeds kept).
run_vrx() {
  "$VRXFWUL" "$@" >"$VRX_SIM_DIR/vrx.out" 2>"$VRX_SIM_DIR/vrx.err" </dev/null
  RC=$?
  OUT=$(cat "$VRX_SIM_DIR/vrx.out"; echo x)
  OUT=${OUT%x}
  ERR=$(cat "$VRX_SIM_DIR/vrx.err"; echo x)
  ERR=${ERR%x}
}

# LAN options for the program, after the interface: lan_args lan|lanplus [C]
lan_args() {
  local a=(-H="$VRX_SIM_HOST" -U="$VRX_SIM_USER" -P="$VRX_SIM_PASSWORD" -L="$1")
  [ -n "${2:-}" ] && a+=(-C="$2")
  printf '%s\n' "${a[@]}"
}

# The inventory document for a BMC version "M.mm".
inventory_xml() {
  printf '%s\n' '<?xml version="1.0" encoding="UTF-8" ?>' \
    '<SVMInventory lang="en">' \
    '   <Device componentID="5814" display="BMC Firmware">' \
    "      <Application componentType=\"FRMW\" version=\"$1\" display=\"BMC Firmware\" />" \
    '   </Device>' '</SVMInventory>'
}

# ends_with WHAT SUFFIX TEXT
check_ends_with() {
  if [[ "$3" == *"$2" ]]; then pass "$1"; else
    fail "$1: text does not end with [$2]:"$'\n'"$3"
  fi
}

# resets_done: how many times the BMC has come back from a reset so far.
resets_done() { grep -c ' event up, version' "$VRX_SIM_LOG"; }

# wait_reset_after COUNT SECONDS: until the BMC has come back from a reset
# that followed the moment resets_done gave COUNT.
wait_reset_after() {
  local count=$1 limit=$2 start=$SECONDS
  while [ $((SECONDS - start)) -le "$limit" ]; do
    [ "$(resets_done)" -gt "$count" ] && return 0
    sleep 0.2
  done
  return 1
}
