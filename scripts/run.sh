#!/usr/bin/env bash
# Sets up, builds and runs the main program, kel-run, with the given arguments.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$ROOT/scripts/build.sh" kel-run >&2
exec "${KEL_BUILD_DIR:-$ROOT/build}/bin/kel-run" "$@"
