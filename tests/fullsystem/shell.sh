#!/usr/bin/env bash
# A shell in the full-system guest, next to the simulated BMC, for trying
# things by hand (see README.md here). Harness options pass through, e.g.
#   tests/fullsystem/shell.sh --bmc "set usb_layout superfloppy"
# In the guest: vrxfwul -e=0 -i=/scenario/image.bin -f
set -uo pipefail
source "$(dirname "$0")/lib.sh"
fs_enter --timeout 3600 "$@"
vrx-mkimage -o image.bin -v 2.07.3 -p 3 >/dev/null
fs_file image.bin
echo "fullsystem: BMC request log: $VRX_SIM_LOG; stick log: $FS_WORK/stick.log" >&2
fs_shell
