# kel_add_plugin_model(<target> ENGINE <name> VERSION <text> MODELS <file>...)
#
# Builds a plugin model library: a shared library that embeds the given model files and
# exports the eleven kelModel* functions kel uses to register it as an inner model
# (kel/c/kel_plugin_model.h). For "OpenVINO" give the XML file then the weights file; for
# "WindowsML" give one .onnx file. The files are embedded at build time (no copy is read at
# run time) and the library is rebuilt when they change.
#
# Options meant for testing a host's handling of broken libraries (all optional):
#   REPORT_ENGINES <n>, REPORT_VERSIONS <n>, REPORT_MODELS <n>  counts the library claims
#   ZERO_SIZE_MODEL <i>    model i reports a size of 0
#   NULL_BUFFER_MODEL <i>  model i hands out a null buffer
#   NULL_OBJECT            kelModelCreate returns a null model object (the rest still answers)
#   NEGATIVE_NAME_LENGTH   the engine name's length is reported as -1 (the name is still written)
set(KEL_PLUGIN_MODEL_TEMPLATE ${CMAKE_CURRENT_LIST_DIR}/kel_plugin_model.c.in)

function(kel_add_plugin_model target)
  cmake_parse_arguments(PARSE_ARGV 1 PM "NULL_OBJECT;NEGATIVE_NAME_LENGTH"
    "ENGINE;VERSION;REPORT_ENGINES;REPORT_VERSIONS;REPORT_MODELS;ZERO_SIZE_MODEL;NULL_BUFFER_MODEL"
    "MODELS")
  # An empty ENGINE or VERSION is allowed (it is the library's answer); a missing one is not.
  foreach(required ENGINE VERSION)
    if(NOT "${required}" IN_LIST ARGN)
      message(FATAL_ERROR "kel_add_plugin_model(${target}): ${required} is required")
    endif()
  endforeach()
  list(LENGTH PM_MODELS count)
  foreach(knob REPORT_ENGINES REPORT_VERSIONS)
    if(NOT DEFINED PM_${knob})
      set(PM_${knob} 1)
    endif()
  endforeach()
  if(NOT DEFINED PM_REPORT_MODELS)
    set(PM_REPORT_MODELS ${count})
  endif()
  foreach(knob ZERO_SIZE_MODEL NULL_BUFFER_MODEL)
    if(NOT DEFINED PM_${knob})
      set(PM_${knob} -1)
    endif()
  endforeach()

  set(KEL_PM_EMBED "")
  set(KEL_PM_TABLE "")
  set(rc_lines "")
  set(absolute_models "")
  set(index 0)
  foreach(model IN LISTS PM_MODELS)
    get_filename_component(path "${model}" ABSOLUTE)
    # A file a custom command of this directory makes at build time need not exist yet.
    get_source_file_property(generated "${path}" GENERATED)
    if(NOT EXISTS "${path}" AND NOT generated)
      message(FATAL_ERROR "kel_add_plugin_model(${target}): model file ${path} does not exist")
    endif()
    list(APPEND absolute_models "${path}")
    # Windows: each file is an RCDATA resource, numbered from 1 (resource compilers of MSVC
    # and MinGW alike); elsewhere it is assembled in with .incbin.
    math(EXPR resource "${index} + 1")
    string(APPEND rc_lines "${resource} RCDATA \"${path}\"\n")
    string(REPLACE "\\" "\\\\\\\\" asm_path "${path}")
    string(REPLACE "\"" "\\\\\\\"" asm_path "${asm_path}")
    string(APPEND KEL_PM_EMBED
      "__asm__(\".section .rodata.kel_pm_${index},\\\"a\\\"\\n\"\n"
      "        \".balign 64\\n\"\n"
      "        \"kel_pm_model_${index}:\\n\"\n"
      "        \".incbin \\\"${asm_path}\\\"\\n\"\n"
      "        \"kel_pm_model_${index}_end:\\n\"\n"
      "        \".byte 0\\n\"\n"
      "        \".previous\\n\");\n"
      "extern const unsigned char kel_pm_model_${index}[];\n"
      "extern const unsigned char kel_pm_model_${index}_end[];\n")
    string(APPEND KEL_PM_TABLE "    {kel_pm_model_${index}, kel_pm_model_${index}_end},\n")
    math(EXPR index "${index} + 1")
  endforeach()
  if(count EQUAL 0)
    set(KEL_PM_TABLE "    {0, 0},\n")
  endif()
  string(REPLACE "\\" "\\\\" KEL_PM_ENGINE "${PM_ENGINE}")
  string(REPLACE "\"" "\\\"" KEL_PM_ENGINE "${KEL_PM_ENGINE}")
  string(REPLACE "\\" "\\\\" KEL_PM_VERSION "${PM_VERSION}")
  string(REPLACE "\"" "\\\"" KEL_PM_VERSION "${KEL_PM_VERSION}")
  set(KEL_PM_COUNT ${count})
  set(KEL_PM_REPORT_ENGINES ${PM_REPORT_ENGINES})
  set(KEL_PM_REPORT_VERSIONS ${PM_REPORT_VERSIONS})
  set(KEL_PM_REPORT_MODELS ${PM_REPORT_MODELS})
  set(KEL_PM_ZERO_SIZE_MODEL ${PM_ZERO_SIZE_MODEL})
  set(KEL_PM_NULL_BUFFER_MODEL ${PM_NULL_BUFFER_MODEL})
  foreach(flag NULL_OBJECT NEGATIVE_NAME_LENGTH)
    if(PM_${flag})
      set(KEL_PM_${flag} 1)
    else()
      set(KEL_PM_${flag} 0)
    endif()
  endforeach()

  set(source ${CMAKE_CURRENT_BINARY_DIR}/kel_plugin_model_${target}.c)
  configure_file(${KEL_PLUGIN_MODEL_TEMPLATE} ${source} @ONLY)
  if(WIN32)
    set(resources ${CMAKE_CURRENT_BINARY_DIR}/kel_plugin_model_${target}.rc)
    file(WRITE ${resources} "${rc_lines}")
    add_library(${target} SHARED ${source} ${resources})
    set_source_files_properties(${resources} PROPERTIES OBJECT_DEPENDS "${absolute_models}")
  else()
    add_library(${target} SHARED ${source})
    set_source_files_properties(${source} PROPERTIES OBJECT_DEPENDS "${absolute_models}")
  endif()
  set_target_properties(${target} PROPERTIES C_VISIBILITY_PRESET hidden LINKER_LANGUAGE C)
endfunction()
