#!/usr/bin/env bash
# The collection's module without a BMC (needs Debian's python3 with
# ansible-core; skips otherwise).
set -uo pipefail
src=${VRX_SRC_DIR:-$(cd "$(dirname "$0")/../.." && pwd)}
build=${VRX_BUILD_DIR:-$src/build}
if ! /usr/bin/python3 -c 'import ansible.module_utils.basic' 2>/dev/null; then
  echo "SKIP: /usr/bin/python3 cannot import ansible (Debian package ansible-core)" >&2
  exit 77
fi
exec /usr/bin/python3 "$src/tests/fleet/module_test.py" "$src" "$build"
