#ifndef OSTREL_HELPER_SERVICE_H
#define OSTREL_HELPER_SERVICE_H

#include <chrono>
#include <functional>
#include <string>

#include "pipe_server.h"
#include "responder.h"

namespace ostrel::helper {

// Answers the launcher's one request. Other programs of the user can find the pipe as well; they are sent
// away, with a reply that says so if they made a request, and the launcher is waited for again.
class Service {
 public:
  struct Patience {
    std::chrono::milliseconds launcher;  // until it is connected, strangers or not
    std::chrono::milliseconds client;    // for what any client does at once: to ask, and to fetch a refusal
    std::chrono::milliseconds delivery;  // until the launcher has fetched its reply
  };

  // `complain` hears why a client was sent away.
  Service(PipeServer& pipe, const Responder& responder, Patience patience,
          std::function<void(const std::string&)> complain)
      : pipe_(pipe), responder_(responder), patience_(patience), complain_(std::move(complain)) {}

  // Returns when the launcher has its reply; otherwise throws a Failure.
  void ServeLauncher();

 private:
  // Throws a Failure with NoRequest for any other client than the launcher.
  void ServeClient();
  void Refuse(const std::wstring& reply);

  PipeServer& pipe_;
  const Responder& responder_;
  const Patience patience_;
  const std::function<void(const std::string&)> complain_;
};

}  // namespace ostrel::helper

#endif
