#!/usr/bin/env bash
# Runs every fuzz target of a KEL_FUZZ build for a bounded time each.
#   bash tests/fuzz/run.sh <build-fuzz dir> [seconds per target] [targets...]
#   KEL_FUZZ_SEED=<n>   libFuzzer's seed for the first start of each target (default: random)
# The corpus grows in <build dir>/corpus/<target>. A finding in kel's own code (a sanitizer
# report, crash, leak or time-out whose first frame outside the sanitizer and the C and C++
# libraries is kel's) fails the run; its input is written to <build dir>/findings/. Add it
# to tests/fuzz/regressions/<target>/ once fixed.
#
# Findings inside the runtimes (OpenVINO, TBB, ONNX Runtime: not instrumented, not ours to
# fix) never fail the run: whether a bounded run reaches one is chance. Their inputs go to
# <build dir>/runtime-findings/ and the target starts again, with another seed, for the time
# it has left. tests/fuzz/runtime-findings/ keeps the ones worth reporting upstream.
set -euo pipefail
HERE="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
BUILD="$(cd "$1" && pwd)"
SECONDS_EACH="${2:-55}"
shift $(( $# >= 2 ? 2 : 1 ))
TARGETS=("$@")
[ ${#TARGETS[@]} -gt 0 ] || TARGETS=(driver_version library_image register_model network_openvino network_onnx)
DATA="$HERE/../data"
source "$HERE/../sanitizers/options.sh"
# A model may ask the runtime for any amount of memory: a refused allocation is an error
# the runtime reports (std::bad_alloc), not a crash, so huge requests return null here.
export ASAN_OPTIONS="$ASAN_OPTIONS:allocator_may_return_null=1:max_allocation_size_mb=1024"

seed() {  # target corpus-dir
  local t="$1" dir="$2"
  cp -n "$HERE/regressions/$t/"* "$dir/" 2>/dev/null || true
  case "$t" in
    driver_version)
      printf '\x0031.0.101.4575\n31.0.101.5000' > "$dir/seed-intel"
      printf '\x011.2.3\n1.2.4' > "$dir/seed-plain" ;;
    library_image|register_model)
      head -c 4096 "$BUILD/bin/libonnxruntime_providers_shared.so" > "$dir/seed-so-head" 2>/dev/null || true
      printf '\x7fELF\x02\x01\x01' > "$dir/seed-magic"
      head -c 4096 /bin/true > "$dir/seed-pie" ;;
    network_openvino)
      # The runtime finding below makes OpenVINO lose memory at every run: the verdict on
      # findings in the runtimes is exercised each time, not only when fuzzing meets one.
      cp "$HERE/runtime-findings/openvino-cpu-plugin-request-tensor-leak" "$dir/"
      for x in "$DATA"/openvino/*.xml; do
        b="${x%.xml}.bin"
        if [ -f "$b" ]; then
          { cat "$x"; printf '\n<!--kel-weights-->\n'; cat "$b"; } > "$dir/seed-$(basename "$x")"
        else
          cp "$x" "$dir/seed-$(basename "$x")"
        fi
      done
      # ONNX bytes take the ONNX front end's path.
      for f in "$DATA"/openvino/*.onnx; do cp "$f" "$dir/seed-$(basename "$f")"; done ;;
    network_onnx)
      for f in "$DATA"/onnx/*.onnx "$DATA"/openvino/*.onnx; do cp "$f" "$dir/seed-$(basename "$f")"; done ;;
  esac
}

# Prints "runtime" when every report in the log starts inside a runtime library, else
# "kel". A report's place is its first stack frame that is not the sanitizer's or
# libFuzzer's own, nor in the C or C++ library (they only did what their caller asked). A
# leak report counts by its direct leaks: what an indirect leak's owner lost is the owner's.
# A report without a frame (a fuzz target that exits, a library that cannot load) is kel's.
whose() {  # log
  awk '
    function close_report() { if (open) verdict = verdict " " place; open = 0 }
    /^Indirect leak of/ || /LeakSanitizer: detected memory leaks/ { close_report(); next }
    /^==[0-9]+==ERROR/ || /^Direct leak of/ || / runtime error: / {
      close_report(); open = 1; place = "kel"; placed = 0; next }
    open && !placed && /^ *#[0-9]+ 0x/ {
      if ($0 ~ / in (operator (new|delete)|__interceptor_|___interceptor_|__asan|__lsan|__ubsan|__sanitizer|fuzzer::|(malloc|calloc|realloc|free|posix_memalign|aligned_alloc|memcpy|memmove|memset|strlen|strdup) )/) next
      if ($0 ~ /\(\/(usr\/)?lib\/[^)]*\/(libc|libstdc\+\+|libgcc_s|libm)\.so/) next
      placed = 1
      place = ($0 ~ /\/(libopenvino|libtbb|libonnxruntime|libhwloc)[^\/)]*\+0x/) ? "runtime" : "kel" }
    END { close_report(); print (verdict != "" && verdict !~ /kel/) ? "runtime" : "kel" }' "$1"
}

mkdir -p "$BUILD/findings" "$BUILD/runtime-findings"
status=0
runtime_findings=0
for t in "${TARGETS[@]}"; do
  corpus="$BUILD/corpus/$t"
  mkdir -p "$corpus"
  seed "$t" "$corpus"
  echo "[fuzz] $t for ${SECONDS_EACH}s${KEL_FUZZ_SEED:+ from seed $KEL_FUZZ_SEED}"
  # OpenVINO's CPU plugin loses a tensor for some malformed models (an input is kept in
  # tests/fuzz/runtime-findings/), so a per-input leak check would stop this target at once
  # and again at every start; the check at exit stays, and its verdict follows whose().
  extra=()
  [ "$t" = network_openvino ] && extra=(-detect_leaks=0)
  deadline=$(( $(date +%s) + SECONDS_EACH ))
  starts=0
  executed=0
  while :; do
    left=$(( deadline - $(date +%s) ))
    [ "$left" -gt 0 ] || break
    seed_arg=()
    [ -n "${KEL_FUZZ_SEED:-}" ] && seed_arg=(-seed=$(( KEL_FUZZ_SEED + starts )))
    log="$BUILD/findings/$t.$starts.log"
    starts=$(( starts + 1 ))
    # Each start in a temporary directory of its own, so nothing it leaves goes unnoticed.
    work="$(mktemp -d)"
    rc=0
    (cd "$work" && TMPDIR="$work" "$BUILD/bin/kel_fuzz_$t" "$corpus" \
        -max_total_time="$left" -timeout=60 -rss_limit_mb=4096 -max_len=65536 \
        -print_final_stats=1 "${seed_arg[@]}" "${extra[@]}" -artifact_prefix="$work/finding-" \
        > "$log" 2>&1) || rc=$?
    n="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)"
    executed=$(( executed + ${n:-0} ))
    found=("$work"/finding-*)
    left_files="$(find "$work" -mindepth 1 -not -name "kel-fuzz-*" -not -name "finding-*" | wc -l)"
    if [ "$left_files" -ne 0 ]; then
      echo "[fuzz] $t left $left_files files in its temporary directory"; ls -la "$work"; status=1
    fi
    if [ "$rc" -ne 0 ] && [ "$(whose "$log")" = runtime ]; then
      runtime_findings=$(( runtime_findings + 1 ))
      cp "$log" "$BUILD/runtime-findings/"
      [ -e "${found[0]}" ] && cp "${found[@]}" "$BUILD/runtime-findings/"
      echo "[fuzz] $t: a finding inside a runtime library (not a failure); see $BUILD/runtime-findings/$(basename "$log")"
      grep -m 3 -E '^==[0-9]+==ERROR|leak of|^ *#1 ' "$log" | sed 's/^/[fuzz]   /' || true
      rm -rf "$work"
      continue
    fi
    if [ "$rc" -ne 0 ]; then
      [ -e "${found[0]}" ] && cp "${found[@]}" "$BUILD/findings/"
      echo "[fuzz] $t FAILED; see $log"; tail -n 60 "$log"; status=1
    fi
    rm -rf "$work"
    break
  done
  echo "[fuzz] $t executed $executed inputs in $starts start(s)"
done
[ "$runtime_findings" -eq 0 ] || echo "[fuzz] $runtime_findings finding(s) inside the runtimes, in $BUILD/runtime-findings/"
exit $status
