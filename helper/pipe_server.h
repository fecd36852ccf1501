#ifndef OSTREL_HELPER_PIPE_SERVER_H
#define OSTREL_HELPER_PIPE_SERVER_H

#include <windows.h>

#include <chrono>
#include <string>

#include "exit_code.h"
#include "util/unique_handle.h"

namespace ostrel::helper {

// The one end of a pipe on which one client asks one question. Its calls are made once each and in this
// order; each throws a Failure with its own exit code when it does not get done in time.
class PipeServer {
 public:
  // Creates the pipe, as its first and only instance.
  explicit PipeServer(const std::wstring& channelName);

  void WaitForClient(std::chrono::milliseconds patience);
  std::wstring ReadRequest(std::chrono::milliseconds patience);

  // Returns when the client has fetched the reply and closed its end.
  void Deliver(const std::wstring& reply, std::chrono::milliseconds patience);

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  // One call that may go on behind our back.
  class Operation;

  UniqueFileHandle pipe_;
};

}  // namespace ostrel::helper

#endif
