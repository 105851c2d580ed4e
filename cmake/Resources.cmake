# Compiles data files into a program or library, where qv::resourceFileSystem() has them:
#
#   qv_add_resources(target [PREFIX /path] [BASE directory] FILES file...)
#
# A file's path in the resource file system is PREFIX (default /) and its path from BASE (default: the folder of the
# calling CMakeLists.txt), below which it has to lie. A file that changes is compiled in anew. Its time is that of the file,
# or SOURCE_DATE_EPOCH where the environment sets that. Several calls for one target add up. Compilers: g++ and clang, whose
# assembler takes the bytes in as they are, at any size.
set(QV_RESOURCES_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/WriteResources.cmake CACHE INTERNAL "")

function(qv_add_resources target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PREFIX;BASE" "FILES")
  if(NOT TARGET ${target} OR NOT arg_FILES OR arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "qv_add_resources(target [PREFIX /path] [BASE directory] FILES file...)")
  endif()
  get_target_property(type ${target} TYPE)
  if(NOT type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY)$")
    message(FATAL_ERROR "qv_add_resources: ${target} is a static library, of which the linker would leave the resources out")
  endif()
  if(NOT arg_BASE)
    set(arg_BASE .)
  endif()
  get_filename_component(base ${arg_BASE} ABSOLUTE)
  set(list "")
  set(sources "")
  foreach(file ${arg_FILES})
    get_filename_component(source ${file} ABSOLUTE)
    file(RELATIVE_PATH name ${base} ${source})
    if(name MATCHES "^\\.\\./" OR NOT EXISTS ${source} OR IS_DIRECTORY ${source})
      message(FATAL_ERROR "qv_add_resources: ${source} is no file below ${base}")
    endif()
    string(REGEX REPLACE "/+" "/" path "/${arg_PREFIX}/${name}")
    string(APPEND list "${path}\n${source}\n")
    list(APPEND sources ${source})
  endforeach()

  string(MD5 id "${target} ${list}")
  string(SUBSTRING ${id} 0 12 id)
  set(stem ${CMAKE_CURRENT_BINARY_DIR}/${target}_resources_${id})
  file(CONFIGURE OUTPUT ${stem}.txt CONTENT "${list}" @ONLY)
  add_custom_command(OUTPUT ${stem}.cpp
    COMMAND ${CMAKE_COMMAND} -D LIST=${stem}.txt -D ID=${id} -D OUTPUT=${stem}.cpp -P ${QV_RESOURCES_SCRIPT}
    DEPENDS ${sources} ${stem}.txt ${QV_RESOURCES_SCRIPT} VERBATIM COMMENT "Compiling resources into ${target}")
  set_source_files_properties(${stem}.cpp PROPERTIES OBJECT_DEPENDS "${sources}")
  target_sources(${target} PRIVATE ${stem}.cpp)
endfunction()
