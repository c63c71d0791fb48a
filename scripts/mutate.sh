#!/usr/bin/env bash
# A sampled mutation campaign over kel's library sources; see scripts/mutate.py for how it
# samples and judges. Run it after `bash scripts/test.sh` (it needs the set-up machine):
#   bash scripts/mutate.sh                  # the Linux sample (200 compiled mutants asked for)
#   bash scripts/mutate.sh --shard 2/4      # one quarter of the files, to spread a campaign
#   bash scripts/mutate.sh --windows        # the Windows-only files, under Wine (30)
#   bash scripts/mutate.sh --files kel/cxx/createNetwork.cpp --sample 20
# Results accumulate in build-mutate/<linux|windows>/; the report is report.md there.
set -euo pipefail
ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
CACHE="${KEL_CACHE:-$HOME/.cache/kel}"
VENV="$CACHE/mutate-venv"
if [ ! -x "$VENV/bin/mutate" ]; then
  python3 -m venv "$VENV"
  "$VENV/bin/pip" install -q "universalmutator==1.14.1"
fi
[ -f "$ROOT/.deps.cmake" ] || bash "$ROOT/scripts/setup.sh"
KEL_MUTATE_TOOL="$VENV/bin/mutate" exec python3 "$ROOT/scripts/mutate.py" "$@"
