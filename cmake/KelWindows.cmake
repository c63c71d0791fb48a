# The Windows build: kel.dll over the platform's Windows ML runtime (C++/WinRT) and the
# device-setup API, with OpenVINO's Windows C++ library.
#
# With MSVC (on Windows; not checked here) everything links into kel.dll. With MinGW-w64 (the
# cross build made here) every file compiles, warnings as errors, but OpenVINO's C++ library
# has MSVC's C++ ABI, which MinGW cannot link: the OpenVINO back-end is compiled, not linked,
# and the test programs that run under Wine link a stand-in for it (tests/windows).
enable_language(RC)
add_compile_definitions(NOMINMAX)
if(MINGW)
  # C++/WinRT needs coroutines, which GCC 12 keeps behind a flag in C++20.
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-fcoroutines>)
  set(KEL_WARNINGS -Wall -Wextra -Werror)
endif()
# The C++/WinRT projection headers: MSVC finds them in the Windows SDK; the cross build uses
# those of the winrt-sdk wheel.
if(KEL_WINRT_INCLUDE)
  include_directories(SYSTEM ${KEL_WINRT_INCLUDE})
endif()
set(KEL_WINDOWS_LIBS windowsapp runtimeobject ole32 oleaut32 setupapi)

# {fmt}: its package where there is one (vcpkg with MSVC); in the cross build its headers,
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
  find_package(OpenVINO REQUIRED COMPONENTS Runtime)
  set(KEL_OPENVINO openvino::runtime)
endif()

add_library(kel_internal STATIC ${KEL_SOURCES})
target_include_directories(kel_internal PUBLIC ${CMAKE_SOURCE_DIR})
target_compile_definitions(kel_internal PUBLIC KEL_BUILDING)
target_compile_options(kel_internal PRIVATE ${KEL_WARNINGS})
target_link_libraries(kel_internal PUBLIC ${KEL_OPENVINO} ${KEL_FMT} ${KEL_WINDOWS_LIBS})

if(NOT MINGW)
  # kel.dll: the exports are the declarations marked dllexport (KEL_API, KEL_C_API).
  file(WRITE ${CMAKE_BINARY_DIR}/kel_shared.cpp "// kel.dll is the internal library, whole.\n")
  add_library(kel SHARED ${CMAKE_BINARY_DIR}/kel_shared.cpp)
  add_library(kel::kel ALIAS kel)
  target_link_libraries(kel PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,kel_internal>")
  target_include_directories(kel INTERFACE ${CMAKE_SOURCE_DIR})
  target_compile_features(kel INTERFACE cxx_std_20)
endif()

if(KEL_BUILD_TESTS AND MINGW)
  enable_testing()
  add_subdirectory(tests/windows)
endif()
