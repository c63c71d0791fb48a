#!/usr/bin/env bash
# Runs the Windows test programs of a MinGW cross build under Wine, in a Wine prefix made for
# this run alone (the device tests add devices to it), and ends with "N passed, N failed".
#   bash tests/windows/run.sh <build-windows dir>
set -euo pipefail
BUILD="$(cd "$1" && pwd)"
WINE=/usr/lib/wine/wine64
prefix="$(mktemp -d)"
export WINEPREFIX="$prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
trap '/usr/lib/wine/wineserver64 -k >/dev/null 2>&1 || true; rm -rf "$prefix"' EXIT
timeout 300 "$WINE" wineboot -i >/dev/null 2>&1

passed=0
failed=0
for exe in "$BUILD"/bin/*_tests.exe; do
  log="$BUILD/$(basename "$exe" .exe).log"
  rc=0
  timeout 600 "$WINE" "$exe" > "$log" 2>&1 || rc=$?
  ran=$(grep -c '^\[ RUN      \]' "$log" || true)
  ok=$(grep -c '^\[       OK \]' "$log" || true)
  passed=$(( passed + ok ))
  failed=$(( failed + ran - ok ))
  # A program that fails outside a test (a crash at start or exit, a time-out) counts once.
  if [ "$rc" -ne 0 ] && [ "$ran" -eq "$ok" ]; then failed=$(( failed + 1 )); fi
  if [ "$rc" -ne 0 ]; then
    echo "[windows] $(basename "$exe") exited with $rc; see $log"
    grep -A15 '^\[  FAILED  \]\|Failure$\|Unhandled' "$log" | head -60 || true
  fi
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
