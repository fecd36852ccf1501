# ostrel::header_only gives nlohmann-json and CLI11 to the programs (never to the library) as system headers. Only their own
# folders are linked in, never the build machine's whole /usr/include: its C library's headers must not be seen when compiling
# for Windows.
include_guard(GLOBAL)

find_path(OSTREL_JSON_INCLUDE nlohmann/json.hpp HINTS /usr/include REQUIRED NO_CMAKE_FIND_ROOT_PATH)
find_path(OSTREL_CLI_INCLUDE CLI/CLI.hpp HINTS /usr/include REQUIRED NO_CMAKE_FIND_ROOT_PATH)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/header-only)
file(CREATE_LINK ${OSTREL_JSON_INCLUDE}/nlohmann ${CMAKE_BINARY_DIR}/header-only/nlohmann SYMBOLIC)
file(CREATE_LINK ${OSTREL_CLI_INCLUDE}/CLI ${CMAKE_BINARY_DIR}/header-only/CLI SYMBOLIC)
add_library(ostrel_header_only INTERFACE)
add_library(ostrel::header_only ALIAS ostrel_header_only)
target_include_directories(ostrel_header_only SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/header-only)
