#!/usr/bin/env bash
# Sets up (once per machine, cached) and builds kel into build/. Extra arguments are ninja targets.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$ROOT/scripts/setup.sh"
BUILD="${KEL_BUILD_DIR:-$ROOT/build}"
cmake -S "$ROOT" -B "$BUILD" -G Ninja >/dev/null
cmake --build "$BUILD" -j "${KEL_JOBS:-2}" ${1:+--target "$@"}
