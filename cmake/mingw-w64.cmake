# The Windows build: clang and lld, which write the PDB that Windows' debuggers read, over the headers and libraries of
# mingw-w64's gcc (its POSIX thread model, which GoogleTest needs; everything is linked statically). Wine runs what it makes.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
execute_process(COMMAND x86_64-w64-mingw32-g++-posix -print-file-name=libstdc++.a
                OUTPUT_VARIABLE gcc_library OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
get_filename_component(gcc_folder ${gcc_library} DIRECTORY)
set(CMAKE_C_COMPILER clang)
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_CXX_FLAGS_INIT "-stdlib++-isystem ${gcc_folder}/include/c++ \
-stdlib++-isystem ${gcc_folder}/include/c++/x86_64-w64-mingw32")
# Without the time of day in the file's header: two builds of one state are the same bytes.
set(link_flags "-fuse-ld=lld -L${gcc_folder} -B${gcc_folder} -pthread -Wl,--no-insert-timestamp")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${link_flags}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${link_flags}")
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-under-wine)
