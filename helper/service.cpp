#include "service.h"

#include <optional>

#include "failure.h"

namespace ostrel::helper {

void Service::ServeLauncher() {
  const auto deadline = std::chrono::steady_clock::now() + patience_.launcher;
  ExitCode silence = ExitCode::NobodyCame;
  while (pipe_.WaitForClient(deadline)) {
    try {
      return ServeClient();
    } catch (const Failure& failure) {
      if (failure.Code() != ExitCode::NoRequest) throw;
      complain_(failure.what());
    }
    silence = ExitCode::NoRequest;
    pipe_.Disconnect();
  }
  throw Failure(silence, "the launcher did not connect in time");
}

void Service::ServeClient() {
  const std::wstring request = pipe_.ReadRequest(patience_.client);
  const std::optional<std::wstring> reply = responder_.Reply(request);
  if (!reply) throw Failure(ExitCode::NoRequest, "the request cannot be understood");
  if (!responder_.IsFromLauncher(request)) Refuse(*reply);
  pipe_.Deliver(*reply, patience_.delivery);
}

void Service::Refuse(const std::wstring& reply) {
  try {
    pipe_.Deliver(reply, patience_.client);
  } catch (const Failure&) {
    // A stranger that does not want to know why is none the worse for it.
  }
  throw Failure(ExitCode::NoRequest, "the request does not carry the command id");
}

}  // namespace ostrel::helper
