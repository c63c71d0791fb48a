#!/usr/bin/env bash
# Runs the Windows test programs of a cross build under Wine, in a Wine prefix made for this
# run alone (the device tests add devices to it), and ends with "N passed, N failed": the
# GoogleTest suites (*_tests.exe), the hosts of kel.dll (kel_*_host.exe, each ending with its
# own count) and, where the build made it, kel-run.exe.
#   bash tests/windows/run.sh <cross build dir>
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
BUILD="$(cd "$1" && pwd)"
WINE=/usr/lib/wine/wine64
prefix="$(mktemp -d)"
# MSVC's runtime DLLs are Wine's own (an MSVC-ABI build needs them; MinGW's ignores them).
export WINEPREFIX="$prefix" WINEDEBUG=-all \
  WINEDLLOVERRIDES="mscoree,mshtml=;msvcp140,msvcp140_1,msvcp140_2,msvcp140_atomic_wait,vcruntime140,vcruntime140_1,ucrtbase=b"
trap '/usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true; rm -rf "$prefix"' EXIT
timeout 300 "$WINE" wineboot -i >/dev/null 2>&1
cd "$BUILD/bin"

passed=0
failed=0
report() {  # <program> <exit code> <log>
  [ "$2" -eq 0 ] && return
  echo "[windows] $1 exited with $2; see $3"
  grep -A15 '^\[  FAILED  \]\|Failure$\|Unhandled\|^FAIL' "$3" | head -60 || true
}
for exe in *_tests.exe; do
  log="$BUILD/$(basename "$exe" .exe).log"
  rc=0
  timeout 600 "$WINE" "$exe" > "$log" 2>&1 || rc=$?
  ran=$(grep -c '^\[ RUN      \]' "$log" || true)
  ok=$(grep -c '^\[       OK \]' "$log" || true)
  passed=$(( passed + ok ))
  failed=$(( failed + ran - ok ))
  # A program that fails outside a test (a crash at start or exit, a time-out) counts once.
  if [ "$rc" -ne 0 ] && [ "$ran" -eq "$ok" ]; then failed=$(( failed + 1 )); fi
  report "$exe" "$rc" "$log"
done
for exe in kel_*_host.exe; do
  [ -e "$exe" ] || continue
  log="$BUILD/$(basename "$exe" .exe).log"
  rc=0
  timeout 600 "$WINE" "$exe" > "$log" 2>&1 || rc=$?
  counts=$(tr -d '\r' < "$log" | grep -E '^[0-9]+ passed, [0-9]+ failed$' | tail -n 1 || true)
  if [ -n "$counts" ]; then
    passed=$(( passed + ${counts%% *} ))
    failed=$(( failed + $(echo "$counts" | cut -d' ' -f3) ))
  fi
  if [ "$rc" -ne 0 ] && { [ -z "$counts" ] || [ "$(echo "$counts" | cut -d' ' -f3)" -eq 0 ]; }; then
    failed=$(( failed + 1 ))
  fi
  report "$exe" "$rc" "$log"
done
# kel.dll loads openvino.dll only once kel has checked it.
if [ -e kel.dll ]; then
  if /usr/lib/llvm-19/bin/llvm-readobj --coff-imports kel.dll | grep -A1 '^DelayImport {' | grep -q 'Name: openvino.dll'; then
    passed=$(( passed + 1 ))
  else
    failed=$(( failed + 1 ))
    echo "[windows] kel.dll does not delay-load openvino.dll"
  fi
fi
# kel-run.exe: the engines and devices, then the digits IR measured on OpenVINO.
if [ -e kel-run.exe ]; then
  digits="$(echo "Z:$ROOT/tools/kel-run/models/digits.xml" | tr / '\\')"
  while IFS='|' read -r name expect args; do
    log="$BUILD/kel-run-$name.log"
    rc=0
    # shellcheck disable=SC2086
    timeout 300 "$WINE" kel-run.exe $args > "$log" 2>&1 || rc=$?
    if [ "$rc" -eq 0 ] && grep -q "$expect" "$log"; then
      passed=$(( passed + 1 ))
    else
      failed=$(( failed + 1 ))
      echo "[windows] kel-run.exe $args: exit $rc, no '$expect'; see $log"
      head -20 "$log"
    fi
  done <<EOT
list|^OpenVINO (runtime 20[0-9.]*-.*): .*CPU|--list
digits|^Throughput: *[0-9.]* FPS|-m $digits -e OpenVINO -n 20
EOT
fi
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
