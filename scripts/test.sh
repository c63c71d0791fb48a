#!/usr/bin/env bash
# Sets up, builds and runs every test.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
bash "$ROOT/scripts/build.sh"
cd "${KEL_BUILD_DIR:-$ROOT/build}"
ctest --output-on-failure -j "${KEL_JOBS:-2}"
