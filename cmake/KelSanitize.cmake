# Instrumented builds. KEL_SANITIZE: kel, its programs and its tests under AddressSanitizer
# and UndefinedBehaviorSanitizer (any report ends the program). KEL_FUZZ (clang): the same,
# plus the libFuzzer instrumentation, for the fuzz targets in tests/fuzz.
# KEL_SANITIZE_THREAD: ThreadSanitizer instead, for the concurrency suite.
# The run-time options and suppressions are in tests/sanitizers/options.sh, which
# scripts/test.sh sources; source it too before running an instrumented program by hand.
option(KEL_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(KEL_FUZZ "Build the libFuzzer targets (needs clang)" OFF)
option(KEL_SANITIZE_THREAD "Build with ThreadSanitizer" OFF)

if(KEL_SANITIZE OR KEL_FUZZ)
  set(_kel_san -fsanitize=address,undefined -fno-sanitize-recover=all)
  add_compile_options(${_kel_san} -fno-omit-frame-pointer -g)
  add_link_options(${_kel_san})
  if(KEL_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
      message(FATAL_ERROR "KEL_FUZZ needs clang: -DCMAKE_CXX_COMPILER=clang++-16 -DCMAKE_C_COMPILER=clang-16")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
  endif()
elseif(KEL_SANITIZE_THREAD)
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=thread)
endif()
