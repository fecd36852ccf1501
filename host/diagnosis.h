#ifndef OSTREL_HOST_DIAGNOSIS_H
#define OSTREL_HOST_DIAGNOSIS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "exit_code.h"

namespace ostrel::host {

// What went wrong, and what to do about it.
struct Diagnosis {
  ExitCode exitCode = ExitCode::Internal;
  std::string message;
};

struct MachineFacts {
  std::string libraryFolder;
  std::vector<std::string> missingDriverFiles;
  bool holdsLoadDriverPrivilege = false;
};

// What a call of the library came to: its result, and the error lines it wrote.
struct CallFacts {
  bool succeeded = false;
  std::vector<std::string> errorLines;
};

// What to do about a Windows error that says more than the step at which it came, or else what that step
// advises.
const char* AdviceFor(std::uint32_t code, const char* otherwise);

// Each is empty when nothing is wrong.

// Before LoadDriver, because it replaces installed driver files before it notices that it cannot go on.
std::optional<Diagnosis> DiagnoseMachine(const MachineFacts& facts);

// LoadDriver. It also succeeds without a disk event thread, and then nothing would ever be reported.
std::optional<Diagnosis> DiagnoseLoad(const CallFacts& facts);

// The functions that tell the minifilter what to watch. They also succeed when it does not take the message.
std::optional<Diagnosis> DiagnoseConfiguration(const CallFacts& facts);

// Remote address info, whose steps log what fails and go on. The first is for the call that switches it on.
std::optional<Diagnosis> DiagnoseRemoteAddressInfoOn(const CallFacts& facts);
std::optional<Diagnosis> DiagnoseRemoteAddressInfoOff(const CallFacts& facts);

// Whether a line of the log, on whatever thread, says that the minifilter was unloaded or its port closed. So
// does an unload that the host itself asks for.
bool SaysMinifilterIsGone(std::string_view line);
Diagnosis MinifilterIsGone();

std::optional<Diagnosis> DiagnoseUnload(const CallFacts& facts);

}  // namespace ostrel::host

#endif
