# Sourced by a scenario's /scenario/run.sh inside the guest (dash). Every
# line meant for the host starts with "VRXGUEST "; the host reads the
# serial console after the guest has powered off.

now() { cut -d' ' -f1 /proc/uptime; }
mark() { echo "VRXGUEST $*"; }

# start_program ARGS...: the program as a terminal job (its own process
# group, signals at their default actions); its pid (= process group) in
# $prog and /tmp/vrx.pgid.
start_program() {
  mark "run $* at $(now)"
  rm -f /tmp/vrx.log
  vrx-spawn vrxfwul -l=/tmp/vrx.log "$@" >/tmp/vrx.out 2>/tmp/vrx.err </dev/null &
  prog=$!
  echo "$prog" >/tmp/vrx.pgid
}

# signal_group SIGNAL: as a terminal's ^C (INT) or a kill of the job.
signal_group() {
  mark "signal $1 at $(now)"
  kill -"$1" -"$prog"
}

# finish_program: waits for it and prints its status, time and output.
finish_program() {
  wait "$prog"
  rc=$?
  mark "${tag:-}rc $rc at $(now)"
  mark "${tag:-}stdout-begin"
  cat /tmp/vrx.out
  echo
  mark "${tag:-}stdout-end"
  mark "${tag:-}stderr-begin"
  cat /tmp/vrx.err
  mark "${tag:-}stderr-end"
  mark "${tag:-}log-begin"
  cat /tmp/vrx.log 2>/dev/null
  echo
  mark "${tag:-}log-end"
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

# report_state: what a run left behind. Marks carry $tag when a scenario
# makes several runs.
report_state() {
  mark "${tag:-}mounts-begin"
  cat /proc/mounts
  mark "${tag:-}mounts-end"
  for d in /media/scrtch /mnt/scrtch /tmp/scrtch; do
    [ -e "$d" ] && mark "${tag:-}left $d"
  done
  mark "${tag:-}state-end"
}
