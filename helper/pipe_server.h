#ifndef OSTREL_HELPER_PIPE_SERVER_H
#define OSTREL_HELPER_PIPE_SERVER_H

#include <windows.h>

#include <chrono>
#include <string>

#include "exit_code.h"
#include "util/unique_handle.h"

namespace ostrel::helper {

// The one end of a pipe on which one client at a time asks one question.
class PipeServer {
 public:
  using Deadline = std::chrono::steady_clock::time_point;

  // Creates the pipe, as its first and only instance; otherwise throws a Failure with PipeNotCreated.
  explicit PipeServer(const std::wstring& channelName);

  // False when there was none at the deadline. A client that has left again before it was seen is none.
  bool WaitForClient(Deadline deadline);

  // Throws a Failure with NoRequest when nothing comes in time, or nothing that can be a request.
  std::wstring ReadRequest(std::chrono::milliseconds patience);

  // Returns when the client has fetched the whole reply; otherwise throws a Failure with NotDelivered.
  void Deliver(const std::wstring& reply, std::chrono::milliseconds patience);

  // Sends the client away, so that another can be waited for.
  void Disconnect() noexcept;

  // Closes the pipe under the client, from any thread. Nothing else can be done with it afterwards.
  void Break() noexcept;

 private:
  // One call that may go on behind our back.
  class Operation;

  UniqueFileHandle pipe_;
};

}  // namespace ostrel::helper

#endif
