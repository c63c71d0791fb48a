# The Linux build: libkel.so with the runtimes staged beside it, its programs, tests,
# benchmarks and install rules.
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN")
# Installed, libkel.so and the runtimes share the library directory; programs look there.
file(RELATIVE_PATH KEL_BIN_TO_LIB "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
set(KEL_PROGRAM_RPATH "$ORIGIN" "$ORIGIN/${KEL_BIN_TO_LIB}")
add_link_options("LINKER:-rpath-link,${KEL_OUTPUT_DIR}")

find_package(OpenVINO REQUIRED COMPONENTS Runtime)
find_package(fmt REQUIRED)

# kel's interfaces pass std::string to OpenVINO, so kel uses the std::string ABI of the
# OpenVINO it is built against: the standard one from the 2026 series on. The 2025 series'
# wheel has the old ABI, which then also binds kel's C++ hosts (the kel target carries it)
# and rules out libraries built for the standard ABI: {fmt} is used header-only and
# GoogleTest is built from its sources.
set(KEL_CXX11_ABI ${OpenVINO_GLIBCXX_USE_CXX11_ABI})
if(KEL_CXX11_ABI STREQUAL "")
  set(KEL_CXX11_ABI 1)
endif()
if(KEL_CXX11_ABI)
  set(KEL_FMT fmt::fmt)
else()
  add_compile_definitions(_GLIBCXX_USE_CXX11_ABI=0)
  set(KEL_FMT fmt::fmt-header-only)
endif()
find_package(Threads REQUIRED)
include(cmake/KelSanitize.cmake)
include(cmake/KelRuntime.cmake)
include(cmake/KelPluginModel.cmake)

# Everything is built once as a static PIC library: libkel.so and the tests both link it.
add_library(kel_internal STATIC ${KEL_SOURCES})
target_include_directories(kel_internal PUBLIC ${CMAKE_SOURCE_DIR})
target_compile_definitions(kel_internal PUBLIC KEL_BUILDING)
target_compile_options(kel_internal PRIVATE ${KEL_WARNINGS})
target_link_libraries(kel_internal PUBLIC openvino::runtime kel::onnxruntime ${KEL_FMT}
                                          Threads::Threads ${CMAKE_DL_LIBS})

file(WRITE ${CMAKE_BINARY_DIR}/kel_shared.cpp "// libkel.so is the internal library, whole.\n")
add_library(kel SHARED ${CMAKE_BINARY_DIR}/kel_shared.cpp)
add_library(kel::kel ALIAS kel)
target_link_libraries(kel PRIVATE "$<LINK_LIBRARY:WHOLE_ARCHIVE,kel_internal>")
# Exports: the version script names them (the Windows build uses the declarations' dllexport).
target_link_options(kel PRIVATE "LINKER:--version-script=${CMAKE_SOURCE_DIR}/kel/libkel.map"
                    "LINKER:--no-undefined")
set_target_properties(kel PROPERTIES LINK_DEPENDS ${CMAKE_SOURCE_DIR}/kel/libkel.map
                      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(kel INTERFACE $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}>
                                         $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(kel INTERFACE cxx_std_20)
if(NOT KEL_CXX11_ABI)
  target_compile_definitions(kel INTERFACE $<$<COMPILE_LANGUAGE:CXX>:_GLIBCXX_USE_CXX11_ABI=0>)
endif()
add_dependencies(kel kel_stage_runtime)

add_subdirectory(tools)

if(KEL_BUILD_TESTS)
  enable_testing()
  add_subdirectory(tests)
endif()

add_subdirectory(bench)
include(cmake/KelInstall.cmake)
