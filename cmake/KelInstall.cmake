# `cmake --install` lays out a relocatable tree: libkel.so.MAJOR.MINOR.PATCH with the runtime
# libraries beside it (kel checks for them there at start), the public headers, a CMake
# package (targets, version check, kel_add_plugin_model), kel.pc and kel-run. CPack packs the
# same tree as a .tar.gz and a .deb.
include(CMakePackageConfigHelpers)
set(KEL_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kel)

install(TARGETS kel EXPORT kelTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES kel/c/kel.h kel/c/kel_plugin_model.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kel/c)
install(FILES kel/cxx/MLEngine.hpp kel/cxx/KELException.hpp kel/cxx/types.hpp kel/cxx/export.hpp
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kel/cxx)

install(EXPORT kelTargets NAMESPACE kel:: DESTINATION ${KEL_CMAKE_DIR})
configure_package_config_file(cmake/kelConfig.cmake.in ${CMAKE_BINARY_DIR}/kelConfig.cmake
                              INSTALL_DESTINATION ${KEL_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kelConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kelConfig.cmake ${CMAKE_BINARY_DIR}/kelConfigVersion.cmake
              cmake/KelPluginModel.cmake cmake/kel_plugin_model.c.in
        DESTINATION ${KEL_CMAKE_DIR})

# pkg-config finds the tree through the file's own place, so a moved tree still works.
file(RELATIVE_PATH KEL_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" KEL_PC_TO_PREFIX "${KEL_PC_TO_PREFIX}")
if(NOT KEL_CXX11_ABI)
  set(KEL_PC_CFLAGS " -D_GLIBCXX_USE_CXX11_ABI=0")
endif()
configure_file(cmake/kel.pc.in ${CMAKE_BINARY_DIR}/kel.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

kel_install_runtime(${CMAKE_INSTALL_LIBDIR})

# Packages: the same tree as a .tar.gz and a .deb (under /opt/kel; see KelCPackOptions.cmake).
# The dependencies are Debian's packages of what kel does not bundle: the C and C++ runtimes,
# {fmt} when it is linked, and the OpenCL loader that OpenVINO's GPU plugin needs.
set(CPACK_PACKAGE_NAME kel)
set(CPACK_PACKAGE_VENDOR "kel developers")
set(CPACK_PACKAGE_CONTACT "kel developers <kel@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_SOURCE_GENERATOR "")
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/KelCPackOptions.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_COMPRESSION_TYPE gzip)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libstdc++6 (>= 12), libgcc-s1")
if(KEL_CXX11_ABI)
  string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS ", libfmt9")
endif()
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ocl-icd-libopencl1")
include(CPack)
