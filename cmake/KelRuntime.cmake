# The runtimes kel calls: OpenVINO (from the Python wheel) and ONNX Runtime (from its npm
# redistribution). Their libraries are staged beside libkel.so, where kel looks for them.

if(NOT KEL_ORT_ROOT OR NOT EXISTS "${KEL_ORT_ROOT}/include/onnxruntime_cxx_api.h")
  message(FATAL_ERROR "ONNX Runtime not found (KEL_ORT_ROOT='${KEL_ORT_ROOT}'); run scripts/setup.sh")
endif()
add_library(kel::onnxruntime SHARED IMPORTED GLOBAL)
set_target_properties(kel::onnxruntime PROPERTIES
  IMPORTED_LOCATION "${KEL_ORT_ROOT}/lib/libonnxruntime.so"
  IMPORTED_SONAME "libonnxruntime.so.1"
  INTERFACE_INCLUDE_DIRECTORIES "${KEL_ORT_ROOT}/include")

# The OpenVINO libraries directory of the wheel: <package>/libs next to <package>/cmake.
get_filename_component(KEL_OV_LIBS "${OpenVINO_DIR}/../libs" ABSOLUTE)
file(GLOB _kel_ov_files "${KEL_OV_LIBS}/*")

set(_kel_stage_commands)
foreach(_f IN LISTS _kel_ov_files)
  get_filename_component(_n "${_f}" NAME)
  list(APPEND _kel_stage_commands COMMAND ${CMAKE_COMMAND} -E create_symlink "${_f}" "${KEL_OUTPUT_DIR}/${_n}")
  # Unversioned names for the libraries kel checks for (libopenvino.so.2541 -> libopenvino.so).
  if(_n MATCHES "^(libopenvino(_[a-z_]+)?)\\.so\\.[0-9]+$")
    list(APPEND _kel_stage_commands COMMAND ${CMAKE_COMMAND} -E create_symlink "${_n}" "${KEL_OUTPUT_DIR}/${CMAKE_MATCH_1}.so")
  endif()
endforeach()
foreach(_n libonnxruntime.so libonnxruntime_providers_shared.so)
  list(APPEND _kel_stage_commands COMMAND ${CMAKE_COMMAND} -E create_symlink "${KEL_ORT_ROOT}/lib/${_n}" "${KEL_OUTPUT_DIR}/${_n}")
endforeach()
list(APPEND _kel_stage_commands COMMAND ${CMAKE_COMMAND} -E create_symlink libonnxruntime.so "${KEL_OUTPUT_DIR}/libonnxruntime.so.1")

add_custom_target(kel_stage_runtime
  COMMAND ${CMAKE_COMMAND} -E make_directory "${KEL_OUTPUT_DIR}"
  ${_kel_stage_commands}
  COMMENT "Staging the OpenVINO and ONNX Runtime libraries beside libkel.so")
add_dependencies(kel::onnxruntime kel_stage_runtime)

# Installs the runtime libraries into <destination>, beside libkel.so, under the names the
# staging gives them (the unversioned ones as relative links), so the installed tree works
# wherever it is copied. The runtimes find their own plugins and helpers by $ORIGIN.
function(kel_install_runtime destination)
  set(links ${CMAKE_BINARY_DIR}/runtime-links)
  file(MAKE_DIRECTORY ${links})
  set(libraries)
  foreach(f IN LISTS _kel_ov_files)
    get_filename_component(n "${f}" NAME)
    # The C API and the wheel's pkg-config file are not kel's to ship.
    if(n MATCHES "^libopenvino_c\\.so|\\.pc$")
      continue()
    endif()
    list(APPEND libraries "${f}")
    if(n MATCHES "^(libopenvino(_[a-z_]+)?)\\.so\\.[0-9]+$")
      file(CREATE_LINK "${n}" "${links}/${CMAKE_MATCH_1}.so" SYMBOLIC)
      list(APPEND libraries "${links}/${CMAKE_MATCH_1}.so")
    endif()
  endforeach()
  foreach(n libonnxruntime.so libonnxruntime.so.1 libonnxruntime_providers_shared.so)
    list(APPEND libraries "${KEL_ORT_ROOT}/lib/${n}")
  endforeach()
  install(FILES ${libraries} DESTINATION ${destination})
endfunction()
