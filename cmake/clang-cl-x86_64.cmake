# Cross build for Windows x64 with MSVC's C++ ABI, from open parts only: Debian's clang-cl and
# lld-link (LLVM 19), microsoft/STL's headers, Wine's C runtime and Windows headers, and import
# libraries made from the DLLs' own export tables (cmake/msvc/sysroot.py builds them into the
# build tree on first configure). kel.dll then links OpenVINO's Windows C++ library, which MinGW
# cannot. scripts/setup.sh writes where the STL and the Wine headers are:
#   cmake -S . -B build-msvc -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/clang-cl-x86_64.cmake
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_VERSION 10.0)
set(CMAKE_SYSTEM_PROCESSOR AMD64)
set(_llvm /usr/lib/llvm-19/bin)
set(CMAKE_C_COMPILER ${_llvm}/clang-cl)
set(CMAKE_CXX_COMPILER ${_llvm}/clang-cl)
set(CMAKE_LINKER ${_llvm}/lld-link)
set(CMAKE_AR ${_llvm}/llvm-lib)
set(CMAKE_RC_COMPILER ${_llvm}/llvm-rc)
set(CMAKE_MT ${_llvm}/llvm-mt)
set(CMAKE_C_COMPILER_TARGET x86_64-pc-windows-msvc)
set(CMAKE_CXX_COMPILER_TARGET x86_64-pc-windows-msvc)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/lib/wine/wine64)
set(CMAKE_TRY_COMPILE_CONFIGURATION Release)
# Only the release runtime (/MD) is made: microsoft/STL's debug checks need msvcp140d.dll.
set(CMAKE_BUILD_TYPE Release CACHE STRING "")

# The sysroot is made once per build tree; CMake's own probe projects read this toolchain file
# again and find it through the environment.
if(NOT DEFINED ENV{KEL_MSVC_SYSROOT})
  include(${CMAKE_CURRENT_LIST_DIR}/../.deps.cmake OPTIONAL)
  foreach(var KEL_MSSTL_DIR KEL_WINE_HEADERS KEL_OPENVINO_WINDOWS)
    if(NOT IS_DIRECTORY "${${var}}")
      message(FATAL_ERROR "The MSVC-ABI build needs ${var} (run scripts/setup.sh); it is '${${var}}'.")
    endif()
  endforeach()
  set(_sysroot ${CMAKE_BINARY_DIR}/msvc-sysroot)
  file(GLOB _inputs ${CMAKE_CURRENT_LIST_DIR}/msvc/*/* ${CMAKE_CURRENT_LIST_DIR}/msvc/*.py)
  set(_key "${KEL_MSSTL_DIR};${KEL_WINE_HEADERS};${KEL_OPENVINO_WINDOWS}")
  foreach(f ${_inputs})
    file(SHA256 ${f} _hash)
    string(APPEND _key ";${_hash}")
  endforeach()
  string(SHA256 _key "${_key}")
  if(NOT EXISTS ${_sysroot}/${_key})
    message(STATUS "Building the MSVC-ABI sysroot in ${_sysroot}")
    file(REMOVE_RECURSE ${_sysroot})
    execute_process(COMMAND python3 ${CMAKE_CURRENT_LIST_DIR}/msvc/sysroot.py ${_sysroot}
                      --wine-headers ${KEL_WINE_HEADERS} --wine-dlls /usr/lib/x86_64-linux-gnu/wine/x86_64-windows
                      --stl ${KEL_MSSTL_DIR} --openvino-dll ${KEL_OPENVINO_WINDOWS}/libs/openvino.dll --llvm ${_llvm}
                    RESULT_VARIABLE _rc)
    if(NOT _rc EQUAL 0)
      message(FATAL_ERROR "Building the MSVC-ABI sysroot failed")
    endif()
    file(TOUCH ${_sysroot}/${_key})
  endif()
  set(ENV{KEL_MSVC_SYSROOT} ${_sysroot})
  set(ENV{KEL_MSVC_STL} ${KEL_MSSTL_DIR})
endif()
set(KEL_MSVC_SYSROOT $ENV{KEL_MSVC_SYSROOT})

# Warnings are errors in every target, kel's, its programs' and plugins'. Include order as
# MSVC's: the runtime's own headers (ours over Wine's where the ABI needs more), the STL, then
# the SDK. -imsvc makes them system headers, out of the reach of /W4.
set(_flags "/X /GS- /WX -fms-compatibility-version=19.44 -DWINE_UNICODE_NATIVE -D_USE_STD_VECTOR_ALGORITHMS=0")
foreach(dir ${CMAKE_CURRENT_LIST_DIR}/msvc/include $ENV{KEL_MSVC_STL}/inc
            $ENV{KEL_MSVC_SYSROOT}/include/msvcrt $ENV{KEL_MSVC_SYSROOT}/include/windows)
  string(APPEND _flags " -imsvc${dir}")
endforeach()
set(CMAKE_C_FLAGS_INIT "${_flags}")
set(CMAKE_CXX_FLAGS_INIT "${_flags}")
set(CMAKE_RC_FLAGS_INIT "/I $ENV{KEL_MSVC_SYSROOT}/include/windows /I $ENV{KEL_MSVC_SYSROOT}/include/msvcrt")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "/libpath:$ENV{KEL_MSVC_SYSROOT}/lib")
endforeach()
