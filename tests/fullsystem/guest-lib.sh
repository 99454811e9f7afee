# Sourced by a scenario's /scenario/run.sh inside the guest (dash). Every
# line meant for the host starts with "VRXGUEST "; the host reads the
# serial console after the guest has powered off.

now() { cut -d' ' -f1 /proc/uptime; }
mark() { echo "VRXGUEST $*"; }

# start_program ARGS...: the program in its own session and process group,
# as from a terminal; its pid (= process group) in $prog.
start_program() {
  mark "run $* at $(now)"
  rm -f /tmp/vrx.log
  setsid vrxfwul -l=/tmp/vrx.log "$@" >/tmp/vrx.out 2>/tmp/vrx.err </dev/null &
  prog=$!
}

# finish_program: waits for it and prints its status, time and output.
finish_program() {
  wait "$prog"
  rc=$?
  mark "rc $rc at $(now)"
  mark "stdout-begin"
  cat /tmp/vrx.out
  echo
  mark "stdout-end"
  mark "stderr-begin"
  cat /tmp/vrx.err
  mark "stderr-end"
  mark "log-begin"
  cat /tmp/vrx.log 2>/dev/null
  echo
  mark "log-end"
}

run_program() {
  start_program "$@"
  finish_program
}

# wait_for SECONDS COMMAND...: polls every 50 ms; 0 when COMMAND succeeded.
wait_for() {
  limit=$(( $1 * 20 ))
  shift
  n=0
  while [ $n -lt $limit ]; do
    "$@" 2>/dev/null && return 0
    usleep 50000
    n=$((n + 1))
  done
  return 1
}

copying() { [ -s /media/scrtch/firmimg.k9 ] || [ -s /mnt/scrtch/firmimg.k9 ]; }

# report_state: what a run left behind.
report_state() {
  mark "mounts-begin"
  cat /proc/mounts
  mark "mounts-end"
  for d in /media/scrtch /mnt/scrtch /tmp/scrtch; do
    [ -e "$d" ] && mark "left $d"
  done
  mark "state-end"
}
