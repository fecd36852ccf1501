# The one warning set of everything written here. `target_link_libraries(x PRIVATE ostrel::warnings)`.
add_library(ostrel_warnings INTERFACE)
add_library(ostrel::warnings ALIAS ostrel_warnings)
target_compile_options(ostrel_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
