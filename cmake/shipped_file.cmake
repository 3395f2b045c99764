# What a Windows file that goes to customers has beside its code: the project's version, as Explorer and installers show it, a
# PDB of its own, whose source paths begin at the project's folder wherever it was built, and guarded indirect calls. Programs
# that are made of the same objects guard them as well.
set(LM_SHIPPED_OPTIONS "")
if(WIN32)
  set(LM_SHIPPED_OPTIONS -g -gcodeview -ffile-compilation-dir=. -fno-color-diagnostics
      -ffunction-sections -fdata-sections "SHELL:-Xclang -cfguard")
  set(launcher "${CMAKE_SOURCE_DIR}/cmake/with-relative-paths ${CMAKE_SOURCE_DIR}")
  set(CMAKE_CXX_USE_RESPONSE_FILE_FOR_INCLUDES OFF)
  set_property(GLOBAL PROPERTY RULE_LAUNCH_COMPILE "${launcher}")
  set_property(GLOBAL PROPERTY RULE_LAUNCH_LINK "${launcher}")
endif()

if(WIN32)
  add_library(load_config STATIC ${CMAKE_SOURCE_DIR}/src/base/load_config.cpp)
  target_link_options(load_config INTERFACE -Wl,-u,_load_config_used -Wl,-Xlink=-guard:cf)
endif()

function(lm_shipped_file target type file description)
  enable_language(RC)
  set(LM_FILE_TYPE ${type})
  set(LM_FILE_NAME ${file})
  set(LM_INTERNAL_NAME ${target})
  set(LM_FILE_DESCRIPTION ${description})
  set(LM_MANIFEST "")
  if(type STREQUAL VFT_APP)
    set(LM_MANIFEST "1 24 \"${CMAKE_SOURCE_DIR}/cmake/program.manifest\"")  # of the program itself, RT_MANIFEST
  endif()
  configure_file(${CMAKE_SOURCE_DIR}/cmake/version.rc.in ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc @ONLY)
  target_sources(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/${target}.rc)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${LM_SHIPPED_OPTIONS}>)
  target_link_options(${target} PRIVATE
    -Wl,--pdb=${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/${target}.pdb -Wl,-Xlink=-pdbaltpath:${target}.pdb
    -Wl,-Xlink=-pdbsourcepath:/ -Wl,--gc-sections)
  target_link_libraries(${target} PRIVATE load_config)
  # What is left then is the DWARF of mingw-w64's own libraries.
  add_custom_command(TARGET ${target} POST_BUILD COMMAND llvm-strip $<TARGET_FILE:${target}>)
endfunction()
