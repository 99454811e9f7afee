#!/bin/bash
# Re-records the "/sbin/fdisk -l" and "df -Th" outputs kept beside this
# script, from real loop devices. Run as root with fdisk, dosfstools and
# util-linux installed and no other loop device attached. Every mount is made
# in a private mount namespace (with a tmpfs over /media), and every loop
# device and mount is removed on exit.
set -euo pipefail

if [ -z "${VRX_RECORD_NS:-}" ]; then
  exec env VRX_RECORD_NS=1 LC_ALL=C.UTF-8 unshare -m --propagation private "$0" "$@"
fi

out=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d /tmp/vrx-usb-recording.XXXXXX)
loops=()
mounts=()

cleanup() {
  local i
  for ((i = ${#mounts[@]} - 1; i >= 0; i--)); do umount "${mounts[i]}" || true; done
  for l in "${loops[@]}"; do losetup -d "$l" 2>/dev/null || true; done
  umount /media 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

if [ -n "$(losetup -l -n)" ]; then
  echo "another loop device is attached; the fdisk listings would show it" >&2
  exit 1
fi

attach() {  # sets LOOP
  LOOP=$(losetup -f --show "$1")
  loops+=("$LOOP")
}
detach() {
  losetup -d "$1"
  local kept=()
  for l in "${loops[@]}"; do [ "$l" = "$1" ] || kept+=("$l"); done
  loops=("${kept[@]}")
}
mount_on() {  # mount_on ARGS... DIR
  mount "$@"
  mounts+=("${!#}")
}
unmount() {
  umount "$1"
  unset 'mounts[${#mounts[@]}-1]'
}
# A 64 MiB stick with a DOS table and one FAT partition from sector 2048.
partitioned_image() {
  truncate -s 64M "$1"
  echo 'start=2048, type=6' | sfdisk -q "$1"
  mkfs.vfat --offset 2048 "$1" 64512 >/dev/null
}
ext2_image() {
  truncate -s "$2" "$1"
  mkfs.ext2 -q -F "$1"
}
fdisk_rec() { /sbin/fdisk -l >"$out/$1"; }
df_rec() { df -Th | grep -v '^model_tools_unavailable ' >"$out/$1"; }

# ---- fdisk listings ----
fdisk_rec fdisk_none.txt

partitioned_image "$work/a.img"
attach "$work/a.img"; A=$LOOP
fdisk_rec fdisk_before.txt

partitioned_image "$work/b.img"
attach "$work/b.img"; B=$LOOP
fdisk_rec fdisk_after_partitioned.txt

partitioned_image "$work/b2.img"
attach "$work/b2.img"; B2=$LOOP
fdisk_rec fdisk_after_two_sticks.txt
detach "$B2"
detach "$B"

mkfs.vfat -C "$work/c.img" 65536 >/dev/null
attach "$work/c.img"; C=$LOOP
fdisk_rec fdisk_after_superfloppy.txt
detach "$C"

truncate -s 32M "$work/d.img"
attach "$work/d.img"; D=$LOOP
fdisk_rec fdisk_before_blank.txt
echo 'start=2048, type=6' | sfdisk -q --no-reread "$D"
attach "$work/c.img"; C=$LOOP
fdisk_rec fdisk_after_unrelated.txt
detach "$C"
detach "$D"
detach "$A"

# ---- df reports ----
mount -t tmpfs -o size=1m tmpfs /media
df_rec df_none.txt

mkdir /media/scrtch /media/sub /media/sub/scrtch
scrtch_rec() {  # scrtch_rec FILE SIZE [DIR]
  ext2_image "$work/e.img" "$2"
  attach "$work/e.img"
  mount_on "$LOOP" "${3:-/media/scrtch}"
  df_rec "$1"
  unmount "${3:-/media/scrtch}"
  detach "$LOOP"
}
scrtch_rec df_scrtch.txt 64M
scrtch_rec df_15M.txt 16M
scrtch_rec df_1_9G.txt 1950M
scrtch_rec df_kilobytes.txt 1M
scrtch_rec df_sub_scrtch.txt 64M /media/sub/scrtch

# A long source name: mount keeps the given path with --no-canonicalize.
ext2_image "$work/e.img" 64M
attach "$work/e.img"
long="$work/dev/disk/by-id/usb-Virtual_Media_Storage_Device_0123456789ABCDEF-0:0-part1"
mkdir -p "$(dirname "$long")"
ln -s "$LOOP" "$long"
mount_on --no-canonicalize "$long" /media/scrtch
df_rec df_long_name.txt
unmount /media/scrtch

# A source name of more than 255 characters.
dir="$work/dev/disk/by-path"
for part in pci-0000:00:14.0-usb-0:1.4:1.0-scsi-0:0:0:0 \
            usb-Virtual_Media_Storage_Device_0123456789ABCDEF-0:0 \
            virtual-media-storage-device-0123456789abcdef-0123456789abcdef-0123456789abcdef \
            virtual-media-storage-device-fedcba9876543210; do
  dir="$dir/$part"
done
mkdir -p "$dir"
huge="$dir/part1"
ln -s "$LOOP" "$huge"
mount_on --no-canonicalize "$huge" /media/scrtch
df_rec df_over_255.txt
unmount /media/scrtch
detach "$LOOP"

# This kernel has no FAT driver: the vfat variants differ from the real
# reports only in the type field of the loop device's line ("ext2" and
# "vfat" have the same width, so the columns stay aligned).
for f in df_scrtch df_15M df_1_9G df_kilobytes df_sub_scrtch df_long_name df_over_255; do
  sed -E 's#^(/[^ ]+ +)ext2 #\1vfat #' "$out/$f.txt" >"$out/${f}_vfat.txt"
done

# df here widens its first column and never wraps. The wrapped layout (the
# name alone, the figures on the next line under the columns) is made from
# the real long-name line.
awk -v w=24 '
  /^\/.* vfat / { n = $1; rest = substr($0, length(n) + 1); sub(/^ +/, "", rest);
                  printf "%s\n%" w "s%s\n", n, "", rest; next }
  { print }' "$out/df_long_name_vfat.txt" >"$out/df_wrapped_vfat.txt"

echo "recorded into $out"
