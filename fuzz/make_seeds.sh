#!/usr/bin/env bash
# Rebuilds the seed corpora of the fuzz targets (except the hand-made image
# headers in corpus/header) from the outputs recorded from the real tools.
set -euo pipefail
cd "$(dirname "$0")"
root=..
rec_usb=$root/tests/usb/recordings
rec_ipmi=$root/tests/ipmi/recordings

reset() { rm -rf "corpus/$1"; mkdir -p "corpus/$1"; }

reset fdisk
for f in "$rec_usb"/fdisk_*.txt; do cp "$f" "corpus/fdisk/$(basename "$f" .txt)"; done

# df: one byte that picks the device size, then the report.
reset df
for f in "$rec_usb"/df_*.txt; do
  { printf '\x10'; cat "$f"; } > "corpus/df/$(basename "$f" .txt)"
done

# ipmitool: the exit status byte, then what the tool printed.
reset ipmitool_output
while read -r name status; do
  [ -f "$rec_ipmi/$name.txt" ] || continue
  { printf "\\x0$status"; cat "$rec_ipmi/$name.txt"; } > "corpus/ipmitool_output/$name"
done < "$rec_ipmi/exit_codes.txt"

reset config
cp "$root"/tests/golden/cases/config_file_changes_settings/files/bmcfwu.cfg corpus/config/changes
find "$root"/tests/golden/cases -name bmcfwu.cfg | sort | head -8 |
  while read -r f; do cp "$f" "corpus/config/$(basename "$(dirname "$(dirname "$f")")")"; done

reset intf_ini
printf 'KCS\nCA2\nByteBoundary\n' > corpus/intf_ini/kcs
printf 'SMIC\r\n0x62\r\nSixteenBitBoundary\r\n1F00\r\n' > corpus/intf_ini/smic_crlf
printf 'BT with comment\nE4\nreserved_x\n' > corpus/intf_ini/bt

# Command lines: words separated by NUL bytes.
reset cmdline
args() { local name=$1; shift; printf '%s\0' "$@" > "corpus/cmdline/$name"; }
args kcs_image -e=0 -i=firmimg.k9 -f
args lan_uri -e=4 -uri=http://127.0.0.1/board.sdr.vrx -H=127.0.0.2 -U=admin -P=secret -L=lanplus -C=3
args log_quiet -xml -l=run.log -q
args settings -R=3 -I=10 -D=30 -debugmsg -fml
args help -advhelp

# KCS answers: [status][completion code][length][data] per request.
reset kcs_answer
printf '\x00\x00\x0f\x20\x01\x02\x10\x02\x9f\x5e\x2b\x00\x02\x0f\x00\x00\x00\x00' > corpus/kcs_answer/device_id
printf '\x00\x00\x0f\x20\x01\x01\x29\x02\x9f\x5e\x2b\x00\x02\x0f\x00\x00\x00\x00\x00\xc1\x00' > corpus/kcs_answer/device_id_1_41
printf '\x81\x00\x00\xff\x00' > corpus/kcs_answer/failures

# FRU device 0: common header (product area at 8), product area with a
# three-byte manufacturer and the name "Stratovex".
reset fru
printf '\x01\x00\x00\x01\x01\x00\x00\xfd\x01\x03\x19\xc3ABC\xc9Stratovex\xc1\x00\x00\x00\x00\x00\x00\x00\x00' > corpus/fru/product

reset history
cp "$root"/tests/golden/cases/history_table/files/history corpus/history/table
