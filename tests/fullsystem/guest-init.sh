#!/bin/sh
# /init of the full-system guest (dash as PID 1). Mounts the kernel file
# systems, loads the modules in the order the builder computed, waits for
# the system disk and the IPMI device, then runs /scenario/run.sh if the
# initramfs has one (its lines go to the serial console), or a shell when
# the kernel command line says vrx.shell, and powers off.
export PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
export HOME=/root
bb=/bin/busybox
$bb mount -t proc proc /proc
$bb mount -t sysfs sysfs /sys
$bb mount -t devtmpfs devtmpfs /dev
$bb mount -t tmpfs -o mode=755 tmpfs /run
$bb mkdir -p /run/lock
# The update history lives under /var/lib, as on an installed system.
$bb mkdir -p /var/lib
while read -r ko; do
  $bb insmod "/lib/modules/$ko" 2>/dev/null
done </etc/vrx-modules
n=0
while [ $n -lt 100 ] && { [ ! -b /dev/sda ] || [ ! -c /dev/ipmi0 ]; }; do
  $bb usleep 100000
  n=$((n + 1))
done
echo "VRXGUEST ready $($bb cut -d' ' -f1 /proc/uptime) sda=$([ -b /dev/sda ] && echo yes || echo no) ipmi0=$([ -c /dev/ipmi0 ] && echo yes || echo no)"
if [ -x /scenario/run.sh ]; then
  /scenario/run.sh </dev/null
  echo "VRXGUEST done $? $($bb cut -d' ' -f1 /proc/uptime)"
fi
if $bb grep -qw vrx.shell /proc/cmdline; then
  echo "VRXGUEST shell (exit to power off)"
  $bb setsid $bb cttyhack /bin/sh -i
fi
$bb sync
$bb poweroff -f
