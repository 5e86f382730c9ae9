# qn_resources(TARGET SCRIPT... [DEFINES NAME=VALUE...]): compiles resource scripts (docs/resources.md tells
# their language) into an executable, a shared library or a plug-in and registers them when it is loaded. The
# image is the array <TARGET>_resources of the module, and the file <TARGET>_resources.res in the build folder. The
# version text is also an ELF note of the module, for GetFileVersionInfoW on a file that is not loaded.
function(qn_resources target)
  cmake_parse_arguments(arg "" "" "DEFINES" ${ARGN})
  get_target_property(type ${target} TYPE)
  if(NOT type MATCHES "EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY")
    message(FATAL_ERROR "qn_resources: ${target} is no module; give the resources to the module it is linked into")
  endif()
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  string(MAKE_C_IDENTIFIER ${target}_resources name)
  set(base ${CMAKE_CURRENT_BINARY_DIR}/${name})
  set(compiler ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/compile_resources.py)
  list(TRANSFORM arg_DEFINES PREPEND -D)
  foreach(script IN LISTS arg_UNPARSED_ARGUMENTS)
    cmake_path(ABSOLUTE_PATH script BASE_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    list(APPEND scripts ${script})
  endforeach()
  add_custom_command(
    OUTPUT ${base}.cpp
    BYPRODUCTS ${base}.res
    COMMAND Python3::Interpreter ${compiler} --res ${base}.res --cpp ${base}.cpp --name ${name}
      --depfile ${base}.d ${arg_DEFINES} ${scripts}
    DEPENDS ${compiler} ${scripts}
    DEPFILE ${base}.d
    COMMENT "Compiling the resources of ${target}"
    VERBATIM)
  target_sources(${target} PRIVATE ${base}.cpp)
endfunction()
