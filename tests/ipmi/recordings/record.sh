#!/bin/sh
# Re-records the ipmitool outputs in this directory (run as root; needs the
# Debian packages ipmitool and openipmi). Each file holds what the pipe
# receives from "ipmitool ... 2>&1"; exit_codes.txt lists the exit codes.
set -u
cd "$(dirname "$0")"
state=$(mktemp -d)
exec unshare --net sh -c '
  ip link set lo up
  run() { # name, ipmitool arguments...
    name=$1; shift
    ipmitool "$@" > "$name.txt" 2>&1
    echo "$name $?" >> exit_codes.txt
  }
  : > exit_codes.txt
  # Nothing listens yet: the unreachable host.
  run unreachable_lanplus -I lanplus -C 3 -N 1 -R 1 -U admin -P secret -H 127.0.0.1 raw 0x06 0x01
  run unreachable_lan -I lan -N 1 -R 1 -U admin -P secret -H 127.0.0.1 raw 0x06 0x01
  ipmi_sim -c lan.conf -f bmc.emu -s "$1" -n > /dev/null 2>&1 &
  sim=$!
  sleep 1
  lp="-I lanplus -C 3 -U admin -P secret -H 127.0.0.1"
  run get_device_id_lanplus $lp raw 0x06 0x01
  run get_device_id_lan -I lan -U admin -P secret -H 127.0.0.1 raw 0x06 0x01
  run user_name_16_bytes $lp raw 0x06 0x46 0x02
  run cipher_suites_17_bytes $lp raw 0x06 0x54 0x0e 0x00 0x80
  run unknown_completion_code $lp raw 0x06 0x22
  ipmitool $lp raw 0x06 0x24 0x04 0x00 0x00 0x00 0x64 0x00 > /dev/null 2>&1
  run reset_watchdog_no_data $lp raw 0x06 0x22
  run invalid_command $lp raw 0x08 0x02 0x01
  run invalid_data_field $lp raw 0x00 0x02 0x03
  kill $sim
' record "$state"
