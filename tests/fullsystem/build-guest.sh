#!/usr/bin/env bash
# Builds (once, then from the cache) the base of the full-system guest:
# Debian's kernel, unpacked from its package, and an initramfs with the
# static busybox, dash as /bin/sh, util-linux fdisk/mount/umount, coreutils
# df/rm/mkdir, the kernel modules for IDE, USB storage, FAT and the IPMI
# driver in dependency order, and the guest's /init. Also a blank IDE system
# disk (/dev/sda with one partition), so the BMC's stick becomes /dev/sdb.
#
#   build-guest.sh            prints the cache directory holding
#                             vmlinuz, base.cpio and system.img
#
# Cache: $VRX_GUEST_CACHE or ~/.cache/vrxfwul-guest; a new kernel package or
# a change to this script or to guest-init.sh makes a new base.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
cache=${VRX_GUEST_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/vrxfwul-guest}
mkdir -p "$cache/debs"

die() { echo "build-guest: $*" >&2; exit 2; }
for tool in apt-get apt-cache dpkg depmod modprobe ldd sfdisk python3; do
  command -v "$tool" >/dev/null || die "$tool not found"
done

# One builder at a time (parallel test runs share the cache).
exec 9>"$cache/.lock"
flock 9

# The kernel package that linux-image-amd64 stands for, and busybox-static
# (which conflicts with the installed busybox, so it is unpacked, never
# installed).
kernel_package() {
  apt-cache depends linux-image-amd64 2>/dev/null |
    awk '/Depends: linux-image-[0-9]/ {print $2; exit}'
}
kpkg=$(kernel_package)
if [ -z "$kpkg" ] && [ "$(id -u)" -eq 0 ]; then
  apt-get update >/dev/null 2>&1 || true
  kpkg=$(kernel_package)
fi
[ -n "$kpkg" ] || die "no kernel package behind linux-image-amd64 (apt-get update?)"
kver=${kpkg#linux-image-}
fetch() {  # fetch PACKAGE: its .deb in $cache/debs, downloaded once
  local deb
  deb=$(ls "$cache/debs/$1"_*.deb 2>/dev/null | head -n1 || true)
  if [ -z "$deb" ]; then
    (cd "$cache/debs" && apt-get download "$1" >/dev/null 2>&1) ||
      die "apt-get download $1 failed"
    deb=$(ls "$cache/debs/$1"_*.deb | head -n1)
  fi
  echo "$deb"
}
kdeb=$(fetch "$kpkg")
bdeb=$(fetch busybox-static)
key=$( (basename "$kdeb"; basename "$bdeb"; cat "$0" "$here/guest-init.sh" "$here/mkcpio.py") |
       sha256sum | cut -c1-16)
out=$cache/base-$key
if [ -f "$out/base.cpio" ]; then
  echo "$out"
  exit 0
fi

work=$(mktemp -d "$cache/work.XXXXXX")
trap 'rm -rf "$work"' EXIT
dpkg -x "$kdeb" "$work/kernel"
dpkg -x "$bdeb" "$work/busybox"
depmod -b "$work/kernel" "$kver"

root=$work/root
mkdir -p "$root"/usr/{bin,sbin,lib/x86_64-linux-gnu,lib64} "$root"/{proc,sys,dev,run,tmp,media,mnt,etc,root}
ln -s usr/bin "$root/bin"
ln -s usr/sbin "$root/sbin"
ln -s usr/lib "$root/lib"
ln -s usr/lib64 "$root/lib64"
ln -s /proc/self/mounts "$root/etc/mtab"
chmod 1777 "$root/tmp"

# copy_bin PATH: a host binary at the same place, with its shared libraries.
copy_bin() {
  local src=$1 dst lib
  dst=$root/usr/${src#/usr/}
  dst=${dst/\/usr\/usr\//\/usr\/}
  mkdir -p "$(dirname "$dst")"
  cp -L "$src" "$dst"
  for lib in $(ldd "$src" | awk '/=> \// {print $3} /^\t\/lib/ {print $1}'); do
    copy_lib "$lib"
  done
}
copy_lib() {
  local lib=$1 real dst
  real=$(readlink -f "$lib")
  dst=$root/usr/${lib#/}
  dst=${dst/\/usr\/usr\//\/usr\/}
  [ -e "$dst" ] && return 0
  mkdir -p "$(dirname "$dst")"
  cp "$real" "$dst"
}
# Debian's util-linux and coreutils, found where the packages put them.
for b in /usr/bin/dash /usr/bin/mount /usr/bin/umount /usr/sbin/fdisk \
         /usr/bin/df /usr/bin/rm /usr/bin/mkdir; do
  [ -x "$b" ] || die "$b missing (packages dash, mount, fdisk, coreutils)"
  copy_bin "$b"
done
ln -s dash "$root/usr/bin/sh"
cp "$work/busybox/bin/busybox" "$root/usr/bin/busybox"
# Busybox applets only where no real program of that name exists: its own
# mount or df must never stand in for util-linux's or coreutils'.
for applet in $("$root/usr/bin/busybox" --list); do
  [ -e "$root/usr/bin/$applet" ] || [ -e "$root/usr/sbin/$applet" ] ||
    ln -s busybox "$root/usr/bin/$applet"
done

# Kernel modules in dependency order, as modprobe would load them.
mkdir -p "$root/usr/lib/modules"
: >"$root/etc/vrx-modules"
modprobe -d "$work/kernel" -S "$kver" --show-depends -a \
    ata_piix sd_mod ipmi_devintf ipmi_si xhci_pci usb_storage \
    vfat nls_cp437 nls_ascii nls_utf8 |
  awk '$1 == "insmod" && !seen[$2]++ {print $2}' |
  while read -r ko; do
    cp "$ko" "$root/usr/lib/modules/"
    basename "$ko" >>"$root/etc/vrx-modules"
  done
cp "$here/guest-init.sh" "$root/init"
chmod 755 "$root/init"

mkdir -p "$work/out"
cp "$work/kernel/boot/vmlinuz-$kver" "$work/out/vmlinuz"
python3 "$here/mkcpio.py" "$work/out/base.cpio" "$root"
# The system disk: 64 MiB, one Linux partition, nothing mounted from it.
truncate -s 64M "$work/out/system.img"
echo 'start=2048, type=83' | sfdisk -q "$work/out/system.img"
rm -rf "$out"
mv "$work/out" "$out"
echo "$out"
