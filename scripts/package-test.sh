#!/usr/bin/env bash
# Builds the Debian package (Release, without -Werror, as a packager would),
# checks it with lintian, installs it with dpkg -i, runs the installed
# /usr/sbin/vrxfwul (-h, golden cases, the man page, the completion, and
# the README demo against the simulated BMC), removes it with dpkg -r and
# checks that nothing of it is left behind. Needs root.
#
#   bash scripts/package-test.sh [--no-demo]
set -euo pipefail
cd "$(dirname "$0")/.."
readonly REPO=$PWD BUILD=$PWD/build-pkg
demo=1
[ "${1:-}" = --no-demo ] && demo=0

if [ "$(id -u)" -ne 0 ]; then
  echo "package-test: run as root (dpkg -i)" >&2
  exit 1
fi
if dpkg-query -W -f='${Status}' vrxfwul 2>/dev/null | grep -q "ok installed"; then
  echo "package-test: vrxfwul is already installed; remove it first" >&2
  exit 1
fi

launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=Release -DVRX_WERROR=OFF \
  -DVRX_BUILD_TESTS=OFF -DVRX_BUILD_SIM=OFF -DCMAKE_INSTALL_PREFIX=/usr "${launcher[@]}"
cmake --build "$BUILD" -j"$(nproc)"
rm -f "$BUILD"/vrxfwul_*.deb
(cd "$BUILD" && cpack -G DEB)
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$BUILD/CMakeCache.txt")
deb=$BUILD/vrxfwul_${version}_amd64.deb
[ -f "$deb" ] || { echo "package-test: $deb was not built" >&2; exit 1; }

fail=0
check() {  # check NAME COMMAND...: runs it, reports, remembers a failure
  local name=$1
  shift
  if "$@"; then echo "package-test: ok: $name"; else echo "package-test: FAILED: $name" >&2; fail=1; fi
}

echo "package-test: $(basename "$deb"), $(stat -c %s "$deb") bytes"
dpkg-deb -f "$deb" Installed-Size Depends Recommends | sed 's/^/package-test:   /'
# lintian fails on errors (not on its warnings about running as root).
check "lintian reports no error" lintian --fail-on error "$deb"

# Which of the package's directories exist before: those must stay after.
mapfile -t paths < <(dpkg-deb -c "$deb" | awk '{print $6}' | sed 's|^\./|/|; s|/$||' | grep -v '^$')
before=()
for p in "${paths[@]}"; do [ -e "$p" ] && before+=("$p"); done

dpkg -i "$deb"
scratch=$(mktemp -d)
cleanup() {
  rm -rf "$scratch"
  if dpkg-query -W -f='${Status}' vrxfwul 2>/dev/null | grep -q "ok installed"; then
    dpkg -r vrxfwul >/dev/null || true
  fi
}
trap cleanup EXIT

# A golden case against the installed binary, in an empty directory with
# the golden tests' fixed environment. Cases that need the build tree (its
# doubles or paths) cannot run here.
run_case() {
  local case=$REPO/tests/golden/cases/$1 dir=$scratch/$1
  if grep -qs '@BUILD@\|@SOURCE@' "$case"/args "$case"/env "$case"/requires; then
    echo "package-test: case $1 needs the build tree" >&2
    return 1
  fi
  mkdir -p "$dir"
  [ -d "$case/files" ] && cp -a "$case/files/." "$dir/"
  local args=() line envs=()
  while IFS= read -r line || [ -n "$line" ]; do
    args+=("${line//@WORKDIR@/$dir}")
  done <"$case/args"
  if [ -f "$case/env" ]; then
    while IFS= read -r line || [ -n "$line" ]; do
      [[ -z $line || $line == \#* ]] && continue
      line=${line//@WORKDIR@/$dir}
      envs+=("${line//@PATH@//usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin}")
    done <"$case/env"
  fi
  local stdin=/dev/null status=0
  [ -f "$case/stdin" ] && stdin=$case/stdin
  (cd "$dir" && env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
     HOME="$dir" LANG=C LC_ALL=C TZ=UTC "${envs[@]}" \
     bash -c 'exec -a vrxfwul /usr/sbin/vrxfwul "$@"' vrxfwul "${args[@]}") \
     <"$stdin" >"$dir/.stdout" 2>"$dir/.stderr" || status=$?
  [ "$status" = "$(cat "$case/status")" ] &&
    cmp -s "$dir/.stdout" "$case/stdout" && cmp -s "$dir/.stderr" "$case/stderr" || {
      echo "package-test: case $1: status $status"; diff "$case/stdout" "$dir/.stdout" || true
      diff "$case/stderr" "$dir/.stderr" || true
      return 1
    }
}

check "/usr/sbin/vrxfwul -h (golden case help)" run_case help
check "golden case error_needs_dependency_host" run_case error_needs_dependency_host
check "golden case error_xml_with_fml" run_case error_xml_with_fml
check "the open libopenraw.so is in the private library directory" \
  grep -qx /usr/lib/vrxfwul/libopenraw.so < <(dpkg -L vrxfwul)
# Without an IPMI device the installed program finds its library in the
# private directory, which cannot open the interface: status 12.
if [ ! -e /dev/ipmi0 ]; then
  status=0
  trace=$(cd "$scratch" && /usr/sbin/vrxfwul -debugmsg -xml </dev/null 2>&1) || status=$?
  check "KCS without /dev/ipmi0: status 12, \"Failed to Load Library\"" \
    bash -c '[ "$1" = 12 ] && grep -qx "   Failed to Load Library" <<<"$2"' _ "$status" "$trace"
  check "debug trace: loaded from /usr/sbin/../lib/vrxfwul/libopenraw.so" \
    grep -q 'loaded from /usr/sbin/../lib/vrxfwul/libopenraw.so' <<<"$trace"
fi
check "-version prints $version" grep -q "Version:  $version " < <(/usr/sbin/vrxfwul -version || true)
if command -v man >/dev/null; then
  check "man vrxfwul shows the page" \
    grep -q 'EXIT STATUS' < <(MANPAGER=cat MANWIDTH=80 man 8 vrxfwul 2>/dev/null)
fi
check "bash completion is registered" \
  bash --norc -c 'source /usr/share/bash-completion/completions/vrxfwul && complete -p vrxfwul >/dev/null'
if [ "$demo" = 1 ]; then
  check "README demo (sim/demo.sh) with the installed binary" \
    env VRX_DEMO_BINARY=/usr/sbin/vrxfwul bash sim/demo.sh
fi

dpkg -r vrxfwul
left=()
for p in "${paths[@]}"; do
  [ -e "$p" ] || continue
  printf '%s\n' "${before[@]}" | grep -qxF "$p" || left+=("$p")
done
check "dpkg -r leaves nothing behind" test ${#left[@]} -eq 0
[ ${#left[@]} -eq 0 ] || printf 'package-test:   left: %s\n' "${left[@]}" >&2
# Not even as "rc" (removed, configuration kept): there is nothing to purge.
check "dpkg no longer lists vrxfwul" \
  bash -c '! dpkg-query -W -f="\${db:Status-Abbrev}" vrxfwul 2>/dev/null | grep -q "[a-z]"'

[ "$fail" -eq 0 ] && echo "package-test: all checks passed"
exit "$fail"
