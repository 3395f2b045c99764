# Libraries that are headers only and come from the system's packages on both platforms. The folder of links keeps the
# system's other headers out of a cross build.
find_path(CLI11_INCLUDE_DIR CLI/CLI.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
find_path(NLOHMANN_INCLUDE_DIR nlohmann/json.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(header_folder ${CMAKE_BINARY_DIR}/headers)
file(MAKE_DIRECTORY ${header_folder})
file(CREATE_LINK ${CLI11_INCLUDE_DIR}/CLI ${header_folder}/CLI SYMBOLIC)
file(CREATE_LINK ${NLOHMANN_INCLUDE_DIR}/nlohmann ${header_folder}/nlohmann SYMBOLIC)
add_library(header_libraries INTERFACE)
target_include_directories(header_libraries SYSTEM INTERFACE ${header_folder})
