# Run-time options of the instrumented builds; sourced by scripts/test.sh (and by hand
# before running an instrumented program). Any report ends the program with a failure.
KEL_SANITIZER_DIR="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
export ASAN_OPTIONS="halt_on_error=1:detect_leaks=1:detect_stack_use_after_return=0:suppressions=$KEL_SANITIZER_DIR/asan.supp"
export LSAN_OPTIONS="suppressions=$KEL_SANITIZER_DIR/lsan.supp:print_suppressions=0"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1:suppressions=$KEL_SANITIZER_DIR/ubsan.supp"
# TBB opens its helper libtbbbind with RTLD_DEEPBIND, which the sanitizer runtimes cannot
# serve (the library would bind to libc's malloc, not theirs); this TBB switch drops the flag.
export TBB_ENABLE_SANITIZERS=1
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$KEL_SANITIZER_DIR/tsan.supp"
