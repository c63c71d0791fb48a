# The Windows build: kel.dll over the platform's Windows ML runtime (C++/WinRT) and the
# device-setup API, with OpenVINO's Windows C++ library.
#
# With MSVC, or the MSVC-ABI cross build made here (cmake/clang-cl-x86_64.cmake), everything
# links into kel.dll, which delay-loads openvino.dll: kel checks that the runtime sits beside
# it before anything of the runtime is called. With MinGW-w64 (the other cross build made here,
# for GCC's warnings) every file compiles, warnings as errors, but OpenVINO's C++ library has
# MSVC's C++ ABI, which MinGW cannot link: the OpenVINO back-end is compiled, not linked, and
# the test programs that run under Wine link a stand-in for it (tests/windows).
enable_language(RC)
add_compile_definitions(NOMINMAX)
if(MINGW)
  # C++/WinRT needs coroutines, which GCC 12 keeps behind a flag in C++20.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fcoroutines>)
  set(KEL_WARNINGS -Wall -Wextra -Werror)
elseif(KEL_MSVC_SYSROOT)
  set(KEL_WARNINGS /W4 /WX)
endif()
# The C++/WinRT projection headers: MSVC finds them in the Windows SDK; the cross builds use
# those of the winrt-sdk wheel.
if(KEL_WINRT_INCLUDE)
  include_directories(SYSTEM ${KEL_WINRT_INCLUDE})
endif()
set(KEL_WINDOWS_LIBS windowsapp runtimeobject ole32 oleaut32 setupapi)

# {fmt}: its package where there is one (vcpkg with MSVC); in the cross builds its headers,
# header-only.
if(KEL_FMT_HEADERS)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/fmt-include)
  file(CREATE_LINK ${KEL_FMT_HEADERS} ${CMAKE_BINARY_DIR}/fmt-include/fmt SYMBOLIC)
  add_library(kel_fmt INTERFACE)
  target_include_directories(kel_fmt SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/fmt-include)
  target_compile_definitions(kel_fmt INTERFACE FMT_HEADER_ONLY)
  set(KEL_FMT kel_fmt)
else()
  find_package(fmt REQUIRED)
  set(KEL_FMT fmt::fmt)
endif()

include(cmake/KelPluginModel.cmake)

set(KEL_OPENVINO_SOURCES ${KEL_SOURCES})
list(FILTER KEL_OPENVINO_SOURCES INCLUDE REGEX "/modules/openvino/")
# Not dllimport: openvino.dll is delay-loaded (see modules/openvino/vino_delayload_windows.cpp).
set_source_files_properties(${KEL_OPENVINO_SOURCES} PROPERTIES COMPILE_DEFINITIONS OPENVINO_STATIC_LIBRARY)
if(MINGW)
  list(FILTER KEL_SOURCES EXCLUDE REGEX "/modules/openvino/")
  # The OpenVINO back-end against the Windows package's headers: compiled, never linked.
  add_library(kel_openvino_compiled OBJECT ${KEL_OPENVINO_SOURCES})
  target_include_directories(kel_openvino_compiled PRIVATE ${CMAKE_SOURCE_DIR})
  target_include_directories(kel_openvino_compiled SYSTEM PRIVATE ${KEL_OPENVINO_WINDOWS}/include)
  target_compile_definitions(kel_openvino_compiled PRIVATE KEL_BUILDING)
  target_compile_options(kel_openvino_compiled PRIVATE ${KEL_WARNINGS})
  target_link_libraries(kel_openvino_compiled PRIVATE ${KEL_FMT})
  set(KEL_OPENVINO)
else()
  if(KEL_MSVC_SYSROOT)
    # OpenVINO's Windows wheel: its headers and DLLs, and an import library the sysroot made
    # from openvino.dll's export table (the wheel ships none).
    add_library(openvino::runtime SHARED IMPORTED)
    set_target_properties(openvino::runtime PROPERTIES
      IMPORTED_IMPLIB ${KEL_MSVC_SYSROOT}/lib/openvino.lib
      IMPORTED_LOCATION ${KEL_OPENVINO_WINDOWS}/libs/openvino.dll
      INTERFACE_INCLUDE_DIRECTORIES ${KEL_OPENVINO_WINDOWS}/include)
  else()
    find_package(OpenVINO REQUIRED COMPONENTS Runtime)
  endif()
  set(KEL_OPENVINO openvino::runtime)
endif()

add_library(kel_internal STATIC ${KEL_SOURCES})
target_include_directories(kel_internal PUBLIC ${CMAKE_SOURCE_DIR})
target_compile_definitions(kel_internal PUBLIC KEL_BUILDING)
target_compile_options(kel_internal PRIVATE ${KEL_WARNINGS})
target_link_libraries(kel_internal PUBLIC ${KEL_OPENVINO} ${KEL_FMT} ${KEL_WINDOWS_LIBS})

if(NOT MINGW)
  # Whatever links the OpenVINO back-end loads openvino.dll only once kel has checked it (so a
  # missing runtime is kel's error, not the loader's refusal of kel.dll).
  target_link_libraries(kel_internal PUBLIC delayimp)
  target_link_options(kel_internal INTERFACE /DELAYLOAD:openvino.dll)

  # kel.dll: the exports are the declarations marked dllexport (KEL_API, KEL_C_API).
  file(WRITE ${CMAKE_BINARY_DIR}/kel_shared.cpp "// kel.dll is the internal library, whole.\n")
  add_library(kel SHARED ${CMAKE_BINARY_DIR}/kel_shared.cpp)
  add_library(kel::kel ALIAS kel)
  target_link_libraries(kel PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,kel_internal>")
  target_include_directories(kel INTERFACE ${CMAKE_SOURCE_DIR})
  target_compile_features(kel INTERFACE cxx_std_20)

  # The runtime beside kel.dll, where kel looks for it.
  file(GLOB KEL_OPENVINO_DLLS ${KEL_OPENVINO_WINDOWS}/libs/*.dll)
  file(COPY ${KEL_OPENVINO_DLLS} DESTINATION ${KEL_OUTPUT_DIR})
  set(KEL_BIN_TO_LIB ".")
  add_subdirectory(tools)
endif()

if(KEL_BUILD_TESTS)
  enable_testing()
  add_subdirectory(tests/windows)
endif()
