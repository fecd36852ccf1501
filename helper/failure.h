#ifndef OSTREL_HELPER_FAILURE_H
#define OSTREL_HELPER_FAILURE_H

#include <stdexcept>
#include <string>

#include "exit_code.h"

namespace ostrel::helper {

// Ends the helper without an answer: what to say on stderr, and which code to end with.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode exitCode, const std::string& message) : std::runtime_error(message), exitCode_(exitCode) {}

  ExitCode Code() const noexcept { return exitCode_; }

 private:
  ExitCode exitCode_;
};

}  // namespace ostrel::helper

#endif
