# Sets a variable to the sources as they stand, or, where CMAKE_UNITY_BUILD says that sources are compiled together, to one file
# that includes them all: several times as fast. CMake's own such files name the sources by absolute paths, which would show in
# the debug information and in texts.
function(lm_together variable name)
  if(NOT CMAKE_UNITY_BUILD)
    set(${variable} ${ARGN} PARENT_SCOPE)
    return()
  endif()
  set(text "")
  foreach(source IN LISTS ARGN)
    cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR BASE_DIRECTORY ${CMAKE_SOURCE_DIR} OUTPUT_VARIABLE folder)
    string(APPEND text "#include \"${folder}/${source}\"  // NOLINT(bugprone-suspicious-include)\n")
  endforeach()
  set(file ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  file(CONFIGURE OUTPUT ${file} CONTENT "${text}")
  set_source_files_properties(${file} PROPERTIES INCLUDE_DIRECTORIES ${CMAKE_SOURCE_DIR} SKIP_UNITY_BUILD_INCLUSION ON)
  set(${variable} ${file} PARENT_SCOPE)
endfunction()
