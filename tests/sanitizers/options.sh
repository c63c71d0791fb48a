# Run-time options of the instrumented builds; sourced by scripts/test.sh (and by hand
# before running an instrumented program). Any report ends the program with a failure.
KEL_SANITIZER_DIR="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
# allocator_may_return_null: an impossible request gets NULL as from the C library. The
# runtimes check for it: OpenVINO's IR reader, given a directory, asks for 2^63 bytes and
# turns the NULL into an error; an ASan report there would be about the request, not a bug.
export ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:allocator_may_return_null=1:suppressions=$KEL_SANITIZER_DIR/asan.supp"
export LSAN_OPTIONS="suppressions=$KEL_SANITIZER_DIR/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:suppressions=$KEL_SANITIZER_DIR/ubsan.supp"
# TBB opens its helper libtbbbind with RTLD_DEEPBIND, which the sanitizer runtimes cannot
# serve (the library would bind to libc's malloc, not theirs); this TBB switch drops the flag.
export TBB_ENABLE_SANITIZERS=1
# OpenVINO loads its model front ends and device plugins when needed and unloads them with
# the last user. What a front end's globals still point to then looks leaked (LeakSanitizer
# no longer sees those globals) and has no module name for a suppression; and an unloaded
# plugin's thread-local storage has crashed LeakSanitizer's exit-time tracer. Loaded before
# the program they stay mapped, and neither happens. The sanitizer runtime must then accept
# not being the first library in the process.
for lib in "$KEL_SANITIZER_DIR"/../../.venv/lib/python3*/site-packages/openvino/libs/libopenvino_*_frontend.so.* \
           "$KEL_SANITIZER_DIR"/../../.venv/lib/python3*/site-packages/openvino/libs/libopenvino_*_plugin.so; do
  # The GPU plugin needs an OpenCL loader this machine may lack; without it no GPU runs anyway.
  case "$lib" in *intel_gpu_plugin*) continue ;; esac
  [ -e "$lib" ] && KEL_PRELOAD="${KEL_PRELOAD:+$KEL_PRELOAD:}$(cd "$(dirname "$lib")" && pwd)/$(basename "$lib")"
done
export LD_PRELOAD="${KEL_PRELOAD:-}"
export ASAN_OPTIONS="$ASAN_OPTIONS:verify_asan_link_order=0"
# The sanitizer's bookkeeping of dynamic thread-local storage (its __tls_get_addr hook) crashes
# now and then in the runtimes' worker threads, inside the sanitizer itself (a SEGV in
# DTLS_on_tls_get_addr or DTLS_Destroy; google/sanitizers#1322): off, as Chromium and Node.js
# run it. It only lets leak checks see pointers kept in such storage; none has been missed.
export ASAN_OPTIONS="$ASAN_OPTIONS:intercept_tls_get_addr=0"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$KEL_SANITIZER_DIR/tsan.supp"
# ThreadSanitizer: the GPU plugin stays loaded as well. Loaded and unloaded by each core, it
# rebuilds its process-wide tables on one host thread while another reads them, ordered only
# by the runtime's own locks; the copies are made through the C++ library, so no runtime frame
# shows in the report to suppress it by. Kept loaded, the tables are built once.
KEL_TSAN_PRELOAD=""
for lib in "$KEL_SANITIZER_DIR"/../../.venv/lib/python3*/site-packages/openvino/libs/libopenvino_intel_gpu_plugin.so; do
  [ -e "$lib" ] && KEL_TSAN_PRELOAD="$LD_PRELOAD:$(cd "$(dirname "$lib")" && pwd)/$(basename "$lib")"
done
