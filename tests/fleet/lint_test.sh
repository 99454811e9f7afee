#!/usr/bin/env bash
# Debian's ansible-lint over the collection and the example playbook,
# ansible-doc on the module and the role, and a collection build. Skips when
# ansible-lint or ansible-doc is missing.
set -uo pipefail
src=${VRX_SRC_DIR:-$(cd "$(dirname "$0")/../.." && pwd)}
for tool in ansible-lint ansible-doc ansible-galaxy; do
  command -v "$tool" >/dev/null || { echo "SKIP: $tool not found (Debian packages ansible-core, ansible-lint)" >&2; exit 77; }
done
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
export ANSIBLE_COLLECTIONS_PATH=$src/ansible ANSIBLE_NOCOLOR=1 ANSIBLE_LOCAL_TEMP=$tmp/tmp
export ANSIBLE_VAULT_PASSWORD_FILE=$src/ansible/examples/vault-password.txt

cd "$src/ansible" || exit 1
out=$(timeout 600 ansible-lint --nocolor 2>&1)
rc=$?
echo "$out" | tail -n 5
[ "$rc" -eq 0 ] || fail "ansible-lint exited with $rc"
[[ "$out" == *"Passed with production profile: 0 failure(s), 0 warning(s)"* ]] ||
  fail "ansible-lint is not clean at the production profile"

doc=$(ansible-doc vrx.firmware.vrxfwul 2>&1) || fail "ansible-doc vrx.firmware.vrxfwul"
for word in bmc_host expected_version IPMI_PASSWORD "EXAMPLES:" "RETURN VALUES:" version_after; do
  [[ "$doc" == *"$word"* ]] || fail "ansible-doc shows no $word"
done
[[ "$doc" != *"WARNING"* && "$doc" != *"ERROR"* ]] || fail "ansible-doc complains: $doc"
role=$(ansible-doc -t role vrx.firmware.bmc_update 2>&1) || fail "ansible-doc -t role"
[[ "$role" == *bmc_update_uri* ]] || fail "the role's documentation names no bmc_update_uri"

(cd "$tmp" && ansible-galaxy collection build "$src/ansible/ansible_collections/vrx/firmware" >build.out 2>&1) ||
  fail "ansible-galaxy collection build: $(cat "$tmp/build.out")"
ls "$tmp"/vrx-firmware-*.tar.gz >/dev/null 2>&1 || fail "no collection archive built"

if [ "$failures" -ne 0 ]; then echo "$failures check(s) failed" >&2; exit 1; fi
echo "all checks passed"
