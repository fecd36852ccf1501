#ifndef OSTREL_HOST_COMMAND_LINE_H
#define OSTREL_HOST_COMMAND_LINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "exit_code.h"
#include "log_writer.h"
#include "query.h"

namespace ostrel::host {

struct Options {
  std::vector<std::wstring> watchedProcesses;
  std::vector<std::wstring> excludedPaths;
  std::vector<std::wstring> cloudProcesses;
  std::vector<std::wstring> cloudPaths;
  std::vector<std::wstring> excludedCloudPaths;
  std::wstring userName;
  bool remoteAddressInfo = false;
  std::uint8_t driverOption = 0;
  bool tabTitles = true;
  std::uint32_t logLevel = LEVEL_NOTABLE;
  std::wstring logFile;                  // empty: none
  std::optional<std::uint32_t> seconds;  // none: until told to stop
  std::uint32_t refreshSeconds = 5;      // 0: never
  std::optional<Query> query;            // instead of watching
  bool selfCheck = false;                // as well
  std::wstring provider;                 // of the query's login
  std::wstring homeDirectory;            // of its user
};

// Either options, or what to print and with which code to end: after --help and --version with Success and
// the text meant for stdout, after an error with Usage and the text meant for stderr.
struct CommandLine {
  std::optional<Options> options;
  ExitCode exitCode = ExitCode::Success;
  std::string text;
};

// The arguments are those after the program's name; the queries those that can be asked for.
CommandLine ParseCommandLine(const std::vector<std::wstring>& arguments, const Queries& queries);

}  // namespace ostrel::host

#endif
