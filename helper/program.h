#ifndef OSTREL_HELPER_PROGRAM_H
#define OSTREL_HELPER_PROGRAM_H

#include <string_view>

#include "exit_code.h"

namespace ostrel::helper {

// The whole helper, from its command line to its exit code. What there is to say goes to the process's
// standard handles.
ExitCode RunProgram(std::wstring_view commandLine);

}  // namespace ostrel::helper

#endif
