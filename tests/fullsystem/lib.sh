# Helpers for the full-system scenarios. A scenario script sources this
# file, calls fs_enter [harness options] (which re-runs it next to a
# simulated BMC in a private network namespace), writes the guest's part
# with fs_guest, boots the guest with fs_boot and checks what came out.
#
# The guest: Debian's kernel in QEMU (one CPU), the KCS interface wired to
# the simulated BMC (QEMU's external BMC on the simulator's system
# interface port), an IDE system disk (/dev/sda) and an xHCI controller on
# which the BMC plugs its stick (/dev/sdb) over QMP. The program and the
# open libopenraw.so are installed as a package would place them.

FS_DIR=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$FS_DIR/../e2e/lib.sh"

# A missing tool skips; under VRX_E2E_REQUIRED=1 (CI as root) it fails.
fs_skip() {
  echo "fullsystem: SKIP: $*" >&2
  if [ "${VRX_E2E_REQUIRED:-}" = 1 ]; then
    echo "fullsystem: VRX_E2E_REQUIRED=1: failing instead" >&2
    exit 1
  fi
  exit 77
}

# fs_enter [harness options]
fs_enter() {
  if [ -z "${VRX_SIM_DIR:-}" ]; then
    [ "$(id -u)" -eq 0 ] || fs_skip "needs root"
    command -v qemu-system-x86_64 >/dev/null ||
      fs_skip "qemu-system-x86_64 not found (Debian package qemu-system-x86)"
    [ -x "$VRX_BUILD_DIR/vrxfwul" ] || fs_skip "$VRX_BUILD_DIR/vrxfwul not built"
    [ -f "$VRX_BUILD_DIR/src/openraw/libopenraw.so" ] ||
      fs_skip "libopenraw.so not built"
    [ -x "$VRX_BUILD_DIR/tests/fullsystem/vrx-spawn" ] || fs_skip "vrx-spawn not built"
    # The base is built (or found in the cache) before the clock starts.
    FS_BASE=$("$FS_DIR/build-guest.sh") || fs_skip "guest base could not be built"
    export FS_BASE
  fi
  e2e_enter_sim --servers none "$@"
  FS_WORK=$VRX_SIM_DIR/guest
  mkdir -p "$FS_WORK/overlay/scenario"
  cp "$FS_DIR/guest-lib.sh" "$FS_WORK/overlay/scenario/"
  fs_stick_options=""
  fs_write_hook
}

fs_write_hook() {
  cat >"$VRX_SIM_DIR/stick-hook.sh" <<HOOK
#!/bin/sh
exec /usr/bin/python3 "$FS_DIR/stick.py" --qmp "$FS_WORK/qmp.sock" \
  --log "$FS_WORK/stick.log" $fs_stick_options "\$@"
HOOK
  chmod 755 "$VRX_SIM_DIR/stick-hook.sh"
  bmc set hook "$VRX_SIM_DIR/stick-hook.sh" >/dev/null
}

# fs_slow_stick BYTES_PER_SECOND: the next stick writes at that rate.
fs_slow_stick() {
  fs_stick_options="--write-bps $1"
  fs_write_hook
}

# fs_file PATH: put a file into the guest's /scenario.
fs_file() { cp -- "$1" "$FS_WORK/overlay/scenario/"; }

# fs_guest <<'EOF' ... EOF: the guest's part (dash, with guest-lib.sh).
fs_guest() {
  { echo '#!/bin/sh'; echo '. /scenario/guest-lib.sh'; cat; } \
    >"$FS_WORK/overlay/scenario/run.sh"
  chmod 755 "$FS_WORK/overlay/scenario/run.sh"
}

# Lays out the program as a package installs it: the executable in
# /usr/local/sbin, the open library in the private library directory.
fs_install_program() {
  local o=$FS_WORK/overlay libdir f lib
  libdir=$(sed -n 's/^CMAKE_INSTALL_LIBDIR:[A-Z]*=//p' "$VRX_BUILD_DIR/CMakeCache.txt")
  libdir=${libdir:-lib}
  mkdir -p "$o/usr/local/sbin" "$o/usr/local/bin" "$o/usr/local/$libdir/vrxfwul" \
    "$o/usr/lib/x86_64-linux-gnu"
  cp "$VRX_BUILD_DIR/vrxfwul" "$o/usr/local/sbin/"
  cp "$VRX_BUILD_DIR/src/openraw/libopenraw.so" "$o/usr/local/$libdir/vrxfwul/"
  cp "$VRX_BUILD_DIR/tests/fullsystem/vrx-spawn" "$o/usr/local/bin/"
  for f in "$VRX_BUILD_DIR/vrxfwul" "$VRX_BUILD_DIR/src/openraw/libopenraw.so"; do
    for lib in $(ldd "$f" | awk '/=> \// {print $3}'); do
      cp -L "$lib" "$o/usr/lib/x86_64-linux-gnu/"
    done
  done
}

# QEMU's command line: the guest's machine. Accelerator: $VRX_GUEST_ACCEL
# (default tcg; kvm where nested KVM works).
fs_qemu_args() {
  FS_QEMU=(qemu-system-x86_64 -M pc -accel "${VRX_GUEST_ACCEL:-tcg}" -smp 1 -m 512
    -display none -no-reboot
    -kernel "$FS_BASE/vmlinuz" -initrd "$FS_WORK/initrd.cpio"
    -append "console=ttyS0 panic=-1 quiet loglevel=3 ${FS_APPEND:-}"
    -drive "file=$FS_BASE/system.img,format=raw,if=ide,snapshot=on"
    -device qemu-xhci,id=usbc
    -chardev "socket,id=ipmi0,host=127.0.0.1,port=$VRX_KCS_SIM_PORT,reconnect=1"
    -device ipmi-bmc-extern,id=bmc0,chardev=ipmi0
    -device isa-ipmi-kcs,bmc=bmc0,irq=5
    -qmp "unix:$FS_WORK/qmp.sock,server=on,wait=off")
}

fs_make_initrd() {
  fs_install_program
  python3 "$FS_DIR/mkcpio.py" "$FS_WORK/overlay.cpio" "$FS_WORK/overlay"
  cat "$FS_BASE/base.cpio" "$FS_WORK/overlay.cpio" >"$FS_WORK/initrd.cpio"
  rm -f "$FS_WORK/overlay.cpio"
}

# fs_shell: the guest with its serial console on this terminal and a shell
# in place of a scenario (power off with exit, or Ctrl-A X).
fs_shell() {
  fs_make_initrd
  FS_APPEND="${FS_APPEND:-} vrx.shell"
  fs_qemu_args
  "${FS_QEMU[@]}" -serial mon:stdio
}

# fs_boot [SECONDS]: boots the guest, runs /scenario/run.sh, waits for the
# power-off (at most SECONDS, default 300). A line "VRXGUEST yank" from the
# guest pulls the stick at once. Fills FS_CONSOLE (the console text).
fs_boot() {
  local limit=${1:-300} start qemu_pid yanked=0
  fs_make_initrd
  fs_qemu_args
  start=$(date +%s.%N)
  "${FS_QEMU[@]}" -monitor none -serial "file:$FS_WORK/console.log" \
    >"$FS_WORK/qemu.out" 2>&1 &
  qemu_pid=$!
  while kill -0 "$qemu_pid" 2>/dev/null; do
    if [ "$yanked" = 0 ] && grep -q '^VRXGUEST yank' "$FS_WORK/console.log" 2>/dev/null; then
      yanked=1
      /usr/bin/python3 "$FS_DIR/stick.py" --qmp "$FS_WORK/qmp.sock" \
        --log "$FS_WORK/stick.log" yank "(mid-copy)" || true
    fi
    if (( $(date +%s) - ${start%.*} > limit )); then
      fail "guest still running after $limit s: stopped"
      kill "$qemu_pid"
      break
    fi
    sleep 0.2
  done
  wait "$qemu_pid"
  FS_SECONDS=$(python3 -c "print(round($(date +%s.%N) - $start, 1))")
  FS_CONSOLE=$(tr -d '\r' <"$FS_WORK/console.log")
  echo "---- guest console ----"
  cat "$FS_WORK/console.log"
  echo "---- end of guest console (${FS_SECONDS%.*} s wall) ----"
  grep -q '^VRXGUEST done' <<<"$FS_CONSOLE" || fail "the guest's scenario did not finish"
}

# fs_section NAME: the console lines between "VRXGUEST NAME-begin" and
# "VRXGUEST NAME-end" (the last such section).
fs_section() {
  awk -v b="VRXGUEST $1-begin" -v e="VRXGUEST $1-end" \
    '$0 == b {on = 1; text = ""; next} $0 == e {on = 0; last = text; next}
     on {text = text $0 "\n"} END {printf "%s", last}' <<<"$FS_CONSOLE"
}

# fs_value KEY: the first word after "VRXGUEST KEY " (last occurrence).
fs_value() {
  awk -v k="$1" '$1 == "VRXGUEST" && $2 == k {v = $3} END {print v}' <<<"$FS_CONSOLE"
}

# fs_check_clean [TAG]: the run left nothing behind: no scratch mount, no
# scratch directory.
fs_check_clean() {
  local tag=${1:-} mounts
  mounts=$(fs_section "${tag}mounts")
  check_not_contains "${tag}nothing mounted on a scratch directory" "scrtch" "$mounts"
  check_not_contains "${tag}no stick mounted" "/dev/sdb" "$mounts"
  check_not_contains "${tag}no scratch directory left" "VRXGUEST ${tag}left" "$FS_CONSOLE"
}

# The image the BMC read back from the detached stick.
fs_readback() { ls -t "$VRX_SIM_DIR"/bmc/usb-*.img.k9 2>/dev/null | head -n1; }

# One line for the closing numbers: wall time of the whole run and of the
# program inside the guest.
fs_times() {
  local run_at rc_at
  run_at=$(awk '$2 == "run" {for (i = 1; i <= NF; i++) if ($i == "at") print $(i+1)}' <<<"$FS_CONSOLE" | head -n1)
  rc_at=$(awk '$2 ~ /(^|-)rc$/ {print $5}' <<<"$FS_CONSOLE" | tail -n1)
  echo "TIMES scenario=$(basename "$0" .sh) wall=${FS_SECONDS%.*}s program=$(python3 -c "print(round($rc_at - $run_at, 1))" 2>/dev/null)s"
}
