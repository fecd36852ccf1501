#ifndef OSTREL_HELPER_COMMAND_LINE_H
#define OSTREL_HELPER_COMMAND_LINE_H

#include <optional>
#include <string>
#include <string_view>

#include "exit_code.h"

namespace ostrel::helper {

// What the launcher tells the helper: the secret that a request must carry, and the last part of the pipe's
// name.
struct Launch {
  std::wstring commandId;
  std::wstring channelName;
};

// Either a launch, or what to print and with which code to end: after --help with Answered and the text meant
// for stdout, otherwise with Usage and the text meant for stderr.
struct CommandLine {
  std::optional<Launch> launch;
  ExitCode exitCode = ExitCode::Answered;
  std::string text;
};

// `whole` is the command line as Windows keeps it. Its first word is the command id: the launcher puts no
// program name in front.
CommandLine ParseCommandLine(std::wstring_view whole);

}  // namespace ostrel::helper

#endif
