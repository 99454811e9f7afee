#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the simulated BMC
# need. Harmless when they are already there.
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
packages=(
  cmake g++ make clang libclang-rt-14-dev
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  ipmitool openipmi libopenipmi-dev
  fdisk util-linux dosfstools mtools
  iproute2 busybox curl python3 python3-pyftpdlib
  faketime   # a fixed, stepping clock for the record-and-replay test
  dpkg-dev lintian mandoc man-db
  qemu-system-x86 kmod   # full-system guest (its kernel: apt-get download)
  ansible-core ansible-lint
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "missing packages (run as root to install): ${missing[*]}" >&2
    exit 1
  fi
  apt-get update
  apt-get install -y --no-install-recommends "${missing[@]}"
fi
